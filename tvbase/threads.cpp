// SPDX-License-Identifier: MIT
// threads: starting one, its end and its id.
#include "tvbase/objects.h"
#include "tvbase/result.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>

namespace {

// What a new thread is told. Its maker waits until `object` has an id.
struct Errand {
    LPTHREAD_START_ROUTINE start;
    LPVOID parameter;
    ObjectRef object;
    Waiter maker;
};

// Set while a thread of CreateThread runs: what ExitThread ends it with.
thread_local DWORD exitCode = 0;

// Signals the thread's object when its stack is unwound, by a return or by pthread_exit.
struct EndOfThread {
    ObjectRef object;
    explicit EndOfThread(ObjectRef of) : object(std::move(of)) {}
    EndOfThread(const EndOfThread &) = delete;
    EndOfThread &operator=(const EndOfThread &) = delete;
    ~EndOfThread() { SignalEnd(LockObjects(), object.get(), exitCode); }
};

// Its maker goes on when the id is there, and takes the errand away.
void TellId(Errand *errand) {
    const ObjectsLock lock = LockObjects();
    errand->object->id = GetCurrentThreadId();
    errand->maker.stirred.notify_one();
}

void *RunThread(void *argument) {
    auto *errand = static_cast<Errand *>(argument);
    const LPTHREAD_START_ROUTINE start = errand->start;
    const LPVOID parameter = errand->parameter;
    const EndOfThread end(errand->object);
    TellId(errand);
    exitCode = start(parameter);
    return nullptr;
}

struct ThreadAttributes {
    pthread_attr_t attributes;
    ThreadAttributes() { (void)pthread_attr_init(&attributes); }
    ThreadAttributes(const ThreadAttributes &) = delete;
    ThreadAttributes &operator=(const ThreadAttributes &) = delete;
    ~ThreadAttributes() { (void)pthread_attr_destroy(&attributes); }
};

// The size that is asked for is what Win32 gives a thread at once, often a few KiB; its stack grows beyond.
void EnlargeStack(pthread_attr_t *attributes, std::size_t wanted) {
    std::size_t usual = 0;
    (void)pthread_attr_getstacksize(attributes, &usual);
    if (wanted > usual) (void)pthread_attr_setstacksize(attributes, wanted);
}

DWORD StartThread(Errand *errand, std::size_t stackSize) {
    ThreadAttributes detached;
    (void)pthread_attr_setdetachstate(&detached.attributes, PTHREAD_CREATE_DETACHED);
    EnlargeStack(&detached.attributes, stackSize);
    pthread_t thread;
    if (pthread_create(&thread, &detached.attributes, RunThread, errand) != 0) return ERROR_NOT_ENOUGH_MEMORY;
    ObjectsLock lock = LockObjects();
    errand->maker.stirred.wait(lock, [&] { return errand->object->id != 0; });
    return ERROR_SUCCESS;
}

} // namespace

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, size_t dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                    LPVOID lpParameter, DWORD dwCreationFlags, LPDWORD lpThreadId) {
    HANDLE handle = nullptr;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpStartAddress == nullptr) return ERROR_INVALID_PARAMETER;
        if ((dwCreationFlags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) return ERROR_INVALID_PARAMETER;
        const ObjectRef object = std::make_shared<Object>(ObjectKind::thread);
        handle = OpenObject(LockObjects(), object);
        Errand errand = {lpStartAddress, lpParameter, object, {}};
        if (const DWORD rc = StartThread(&errand, dwStackSize); rc != 0) {
            (void)CloseObject(handle, false);
            handle = nullptr;
            return rc;
        }
        if (lpThreadId != nullptr) *lpThreadId = object->id;
        return ERROR_SUCCESS;
    }));
    return handle;
}

void ExitThread(DWORD dwExitCode) {
    exitCode = dwExitCode;
    pthread_exit(nullptr);
}

BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode) {
    if (lpExitCode == nullptr) return Answer(ERROR_INVALID_PARAMETER);
    const ObjectRef thread = FindObject(hThread, ObjectKind::thread);
    if (thread == nullptr) return Answer(ERROR_INVALID_HANDLE);
    const ObjectsLock lock = LockObjects();
    *lpExitCode = thread->exitCode;
    return TRUE;
}

DWORD GetCurrentThreadId() { return static_cast<DWORD>(gettid()); }
