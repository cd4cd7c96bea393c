// SPDX-License-Identifier: MIT
// critical_sections: mutexes that their owner may lock again.
#include "tv/winbase.h"

#include <pthread.h>

#include <new>

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION));
static_assert(alignof(pthread_mutex_t) <= alignof(CRITICAL_SECTION));

pthread_mutex_t *MutexOf(LPCRITICAL_SECTION section) { return reinterpret_cast<pthread_mutex_t *>(section->opaque); }

} // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    (void)pthread_mutex_init(new (lpCriticalSection->opaque) pthread_mutex_t, &attributes);
    (void)pthread_mutexattr_destroy(&attributes);
}

BOOL InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION lpCriticalSection, DWORD) {
    InitializeCriticalSection(lpCriticalSection);
    return TRUE;
}

void EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
    (void)pthread_mutex_lock(MutexOf(lpCriticalSection));
}

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
    return pthread_mutex_trylock(MutexOf(lpCriticalSection)) == 0 ? TRUE : FALSE;
}

void LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
    (void)pthread_mutex_unlock(MutexOf(lpCriticalSection));
}

void DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
    (void)pthread_mutex_destroy(MutexOf(lpCriticalSection));
}
