// SPDX-License-Identifier: MIT
// tvpthread: the mutex that serialises all registry traffic of the process.
//
// Made on the first use and never destroyed; the first use must not race with a second one. Not recursive: an
// operation must never call a public entry point.
#pragma once

#include <pthread.h>

extern pthread_mutex_t tvRegistryMutex;
extern int btvRegistryMutexNeedToInit; // 1 until the mutex has been made

void LockRegistryMutex();
void UnlockRegistryMutex();
