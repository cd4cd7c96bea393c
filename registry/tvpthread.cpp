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

constexpr long forkWaitNs = 100'000'000;

// Whether the thread that forks holds it; its child inherits the answer. Laid out when the program starts, so that the
// library needs nothing of the dynamic linker's.
[[gnu::tls_model("initial-exec")]] thread_local bool heldForFork;

// Whether the mutex could be had, in a moment.
bool TakeForFork() {
    if (pthread_mutex_trylock(&tvRegistryMutex) == 0) return true;
    timespec end = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &end); // 32-bit libc refuses to tell the time of day after 2038
    end.tv_nsec += forkWaitNs;
    end.tv_sec += end.tv_nsec / 1'000'000'000;
    end.tv_nsec %= 1'000'000'000;
    return pthread_mutex_clocklock(&tvRegistryMutex, CLOCK_MONOTONIC, &end) == 0;
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
