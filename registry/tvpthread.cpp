// SPDX-License-Identifier: MIT
// tvpthread: the registry mutex, made when it is first taken.
#include "registry/tvpthread.h"

pthread_mutex_t tvRegistryMutex;
int btvRegistryMutexNeedToInit = 1;

void LockRegistryMutex() {
    if (btvRegistryMutexNeedToInit != 0) {
        (void)pthread_mutex_init(&tvRegistryMutex, nullptr);
        btvRegistryMutexNeedToInit = 0;
    }
    (void)pthread_mutex_lock(&tvRegistryMutex);
}

void UnlockRegistryMutex() { (void)pthread_mutex_unlock(&tvRegistryMutex); }
