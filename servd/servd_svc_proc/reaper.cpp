// SPDX-License-Identifier: MIT
// reaper: a thread for each child, and a list of those that have none.
//
// Owns:    the list.
// Thread:  main thread; the threads made here only wait, take no signals and share nothing.
#include "servd/servd_svc_proc/reaper.h"

#include "servd/checked_memory.h"
#include "util/monotonic_ms.h"

#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdint>

namespace {

constexpr int killedLooks = 50; // at a killed child, a millisecond apart

pid_t *left;
std::size_t leftCount;

void LeaveEnd(pid_t child) {
    left = static_cast<pid_t *>(CheckedRealloc(left, (leftCount + 1) * sizeof *left));
    left[leftCount++] = child;
}

bool TakesEnd(pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; } // -1: somebody else has

// The thread inherits the mask.
bool MakeReaper(pid_t child) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t reaper;
    const int rc =
        pthread_create(&reaper, nullptr, WaitForService, reinterpret_cast<void *>(static_cast<std::intptr_t>(child)));
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return rc == 0;
}

} // namespace

void HaveEndTaken(pid_t child) {
    if (!MakeReaper(child)) LeaveEnd(child);
}

void TakeEndOfKilled(pid_t child) {
    for (int look = 0; look < killedLooks; ++look) {
        if (TakesEnd(child)) return;
        SleepMs(1);
    }
    LeaveEnd(child);
}

void TakeLeftEnds() {
    std::size_t kept = 0;
    for (std::size_t place = 0; place < leftCount; ++place) {
        if (!TakesEnd(left[place])) left[kept++] = left[place];
    }
    leftCount = kept;
}

void *WaitForService(void *pid) {
    (void)pthread_detach(pthread_self()); // joined by nobody, it would keep its stack for ever
    (void)waitpid(static_cast<pid_t>(reinterpret_cast<std::intptr_t>(pid)), nullptr, 0);
    return nullptr;
}
