// SPDX-License-Identifier: MIT
// tvpthread: the mutex that serialises all registry traffic of the process.
//
// Made on the first use and never destroyed; the first use must not race with a second one. Not recursive: an
// operation must never call a public entry point. From the first use on it is free in every child of a fork, whatever
// other threads did at the fork; the fork waits up to 100 ms for an operation under way, and in the child of one that
// lasts longer there are no connections.
#pragma once

#include <pthread.h>

extern pthread_mutex_t tvRegistryMutex;
extern int btvRegistryMutexNeedToInit; // 1 until the mutex has been made

void LockRegistryMutex();
void UnlockRegistryMutex();
