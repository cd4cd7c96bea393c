// SPDX-License-Identifier: MIT
// objects: what handles name, and the table of handles.
//
// A handle is a number that the table gave and never gives again, not an address: it can be checked without being
// followed. Everything here, the states of the objects too, belongs to one mutex; what the functions of this file do
// they do under it, and other files hold ObjectsLock while they touch a field of an object.
#pragma once

#include "tv/winbase.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

enum class ObjectKind { event, thread, process, eventSource };

// A thread inside a wait.
struct Waiter {
    std::condition_variable stirred; // something that it waits for has become signalled
};

// What a handle names. Event sources are never signalled.
struct Object {
    ObjectKind kind;
    std::string name; // of an event, "" when it has none; of an event source
    bool signalled = false;
    bool resetsItself = false; // a wait that it ends takes the signal
    DWORD id = 0;              // of a thread or a process
    bool ended = false;        // thread or process: exitCode holds
    bool codeKnown = true;     // process: false where only its parent was told
    DWORD exitCode = STILL_ACTIVE;
    bool isChild = false;   // process: one that this library started and has to wait for
    bool codeGiven = false; // process: TerminateProcess was given this code
    DWORD givenCode = 0;
    int descriptor = -1; // process: readable when it has ended
    std::vector<Waiter *> waiters;

    explicit Object(ObjectKind of) : kind(of) {}
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    ~Object(); // closes the descriptor
};
using ObjectRef = std::shared_ptr<Object>;

using ObjectsLock = std::unique_lock<std::mutex>;
[[nodiscard]] ObjectsLock LockObjects();

// Gives an object a handle of its own; the handle keeps it alive until CloseObject. The caller holds the lock.
[[nodiscard]] HANDLE OpenObject(const ObjectsLock &, ObjectRef object);

// The object of a handle, of the pseudo handles too; null when there is none.
[[nodiscard]] ObjectRef FindObject(HANDLE handle);
// Null also for one of another kind.
[[nodiscard]] ObjectRef FindObject(HANDLE handle, ObjectKind kind);

// The event of this name that a handle is open for; null when there is none. The caller holds the lock.
[[nodiscard]] ObjectRef FindNamedEvent(const ObjectsLock &, const std::string &name);

// Takes a handle out of the table. 6 ERROR_INVALID_HANDLE when it is not there, or names an event source while none is
// meant, or the other way round.
[[nodiscard]] DWORD CloseObject(HANDLE handle, bool eventSource);

[[nodiscard]] bool IsPseudoHandle(HANDLE handle);

// Signals an object and stirs those who wait for it. The caller holds the lock.
void Signal(const ObjectsLock &, Object *object);
// A thread or a process has ended. The caller holds the lock.
void SignalEnd(const ObjectsLock &, Object *object, DWORD exitCode);
