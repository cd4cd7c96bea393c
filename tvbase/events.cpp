// SPDX-License-Identifier: MIT
// events: made, opened by name, set and reset.
#include "tvbase/objects.h"
#include "tvbase/result.h"
#include "tvbase/wide.h"

namespace {

// A second event of a name is another handle for the first one.
HANDLE CreateNamed(bool manualReset, bool initialState, const char *name) {
    const std::string wanted = name == nullptr ? "" : name;
    const ObjectsLock lock = LockObjects();
    ObjectRef event = wanted.empty() ? nullptr : FindNamedEvent(lock, wanted);
    const bool existed = event != nullptr;
    if (!existed) {
        event = std::make_shared<Object>(ObjectKind::event);
        event->name = wanted;
        event->resetsItself = !manualReset;
        event->signalled = initialState;
    }
    const HANDLE handle = OpenObject(lock, event);
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

DWORD OpenNamed(const char *name, HANDLE *handle) {
    if (name == nullptr) return ERROR_INVALID_PARAMETER;
    const std::string wanted = name;
    const ObjectsLock lock = LockObjects();
    const ObjectRef event = wanted.empty() ? nullptr : FindNamedEvent(lock, wanted);
    if (event == nullptr) return ERROR_FILE_NOT_FOUND;
    *handle = OpenObject(lock, event);
    return ERROR_SUCCESS;
}

} // namespace

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName) {
    HANDLE handle = nullptr;
    (void)Answer(Guarded([&]() -> DWORD {
        handle = CreateNamed(bManualReset != FALSE, bInitialState != FALSE, lpName);
        return ERROR_SUCCESS;
    }));
    return handle;
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName) {
    HANDLE handle = nullptr;
    (void)WithNarrow(
        lpName, [&](const char *name) { handle = CreateEventA(lpEventAttributes, bManualReset, bInitialState, name); });
    return handle;
}

HANDLE OpenEventA(DWORD, BOOL, LPCSTR lpName) {
    HANDLE handle = nullptr;
    (void)Answer(Guarded([&] { return OpenNamed(lpName, &handle); }));
    return handle;
}

HANDLE OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName) {
    HANDLE handle = nullptr;
    (void)WithNarrow(lpName, [&](const char *name) { handle = OpenEventA(dwDesiredAccess, bInheritHandle, name); });
    return handle;
}

BOOL SetEvent(HANDLE hEvent) {
    const ObjectRef event = FindObject(hEvent, ObjectKind::event);
    if (event == nullptr) return Answer(ERROR_INVALID_HANDLE);
    Signal(LockObjects(), event.get());
    return TRUE;
}

BOOL ResetEvent(HANDLE hEvent) {
    const ObjectRef event = FindObject(hEvent, ObjectKind::event);
    if (event == nullptr) return Answer(ERROR_INVALID_HANDLE);
    const ObjectsLock lock = LockObjects();
    event->signalled = false;
    return TRUE;
}
