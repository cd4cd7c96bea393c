// SPDX-License-Identifier: MIT
// tvpthread: the registry mutex, made when it is first taken, and what becomes of it in a child.
//
// A fork copies the mutex and all that it guards as they are. It is therefore taken around the fork, which then comes
// between two operations. An operation that waits for its daemon is not waited for, since it may take minutes: the
// child, in which nobody will ever end it, gets a new mutex then and begins without connections.
#include "registry/tvpthread.h"

#include "registry/connection.h"

#include <ctime>

pthread_mutex_t tvRegistryMutex;
int btvRegistryMutexNeedToInit = 1;

namespace {

constexpr int forkWaits = 100;
constexpr long forkWaitNs = 1'000'000;

// Whether the thread that forks holds it; its child inherits the answer. Laid out when the program starts, so that the
// library needs nothing of the dynamic linker's.
[[gnu::tls_model("initial-exec")]] thread_local bool heldForFork;

// Whether the mutex could be had, in a moment. Asked again and again: a wait until some time needs a clock, of which
// 32-bit libc has none after 2038 that ThreadSanitizer knows.
bool TakeForFork() {
    for (int waits = 0; pthread_mutex_trylock(&tvRegistryMutex) != 0; ++waits) {
        if (waits == forkWaits) return false;
        const timespec wait = {0, forkWaitNs};
        (void)nanosleep(&wait, nullptr);
    }
    return true;
}

void HoldForFork() { heldForFork = TakeForFork(); }

void ReleaseAfterFork() {
    if (heldForFork) UnlockRegistryMutex();
}

void RestoreInChild() {
    ReleaseAfterFork();
    if (heldForFork) return;
    (void)pthread_mutex_init(&tvRegistryMutex, nullptr);
    ForgetConnections();
}

void MakeMutex() {
    (void)pthread_mutex_init(&tvRegistryMutex, nullptr);
    btvRegistryMutexNeedToInit = 0;
    static bool watchesForks = false; // out of memory, it never does: forks are then as risky as anywhere
    if (!watchesForks) watchesForks = pthread_atfork(HoldForFork, ReleaseAfterFork, RestoreInChild) == 0;
}

} // namespace

void LockRegistryMutex() {
    if (btvRegistryMutexNeedToInit != 0) MakeMutex();
    (void)pthread_mutex_lock(&tvRegistryMutex);
}

void UnlockRegistryMutex() { (void)pthread_mutex_unlock(&tvRegistryMutex); }
