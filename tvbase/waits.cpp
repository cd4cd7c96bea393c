// SPDX-License-Identifier: MIT
// waits: for one object or several.
//
// A thread that waits enters itself at each object that it waits for. Whoever signals one stirs all who are entered
// there, and the first of them to have the lock again takes what it waits for.
#include "tvbase/objects.h"
#include "tvbase/processes.h"
#include "tvbase/result.h"

#include <algorithm>
#include <chrono>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;
using Objects = std::vector<ObjectRef>;
using End = std::optional<Clock::time_point>; // none: no end

End EndAfter(DWORD milliseconds) {
    if (milliseconds == INFINITE) return std::nullopt;
    return Clock::now() + std::chrono::milliseconds(milliseconds);
}

void Take(Object *object) {
    if (object->resetsItself) object->signalled = false;
}

bool IsSignalled(const ObjectRef &object) { return object->signalled; }

// The index of what a wait for any of them takes.
std::optional<DWORD> TakeAny(const Objects &objects) {
    const auto found = std::find_if(objects.begin(), objects.end(), IsSignalled);
    if (found == objects.end()) return std::nullopt;
    Take(found->get());
    return static_cast<DWORD>(found - objects.begin());
}

std::optional<DWORD> TakeAll(const Objects &objects) {
    if (!std::all_of(objects.begin(), objects.end(), IsSignalled)) return std::nullopt;
    for (const ObjectRef &object : objects) {
        Take(object.get());
    }
    return WAIT_OBJECT_0;
}

void Leave(const Objects &objects, const Waiter *waiter) {
    for (const ObjectRef &object : objects) {
        std::erase(object->waiters, waiter);
    }
}

// False when the end has passed.
bool WaitForStir(ObjectsLock *lock, Waiter *waiter, const End &end) {
    if (end) return waiter->stirred.wait_until(*lock, *end) == std::cv_status::no_timeout;
    waiter->stirred.wait(*lock);
    return true;
}

DWORD Wait(const Objects &objects, bool all, DWORD milliseconds) {
    const End end = EndAfter(milliseconds);
    const auto take = all ? TakeAll : TakeAny;
    Waiter waiter;
    for (const ObjectRef &object : objects) {
        WatchProcess(object, milliseconds != 0);
    }
    ObjectsLock lock = LockObjects();
    if (const std::optional<DWORD> taken = take(objects)) return *taken;
    for (const ObjectRef &object : objects) {
        object->waiters.reserve(object->waiters.size() + 1);
    }
    for (const ObjectRef &object : objects) {
        object->waiters.push_back(&waiter);
    }
    std::optional<DWORD> taken;
    bool inTime = milliseconds != 0;
    while (!taken && inTime) {
        inTime = WaitForStir(&lock, &waiter, end);
        taken = take(objects); // also at the very end: the signal may have come with it
    }
    Leave(objects, &waiter);
    return taken.value_or(WAIT_TIMEOUT);
}

bool HasTwice(Objects objects) {
    std::sort(objects.begin(), objects.end());
    return std::adjacent_find(objects.begin(), objects.end()) != objects.end();
}

DWORD FindAll(const HANDLE *handles, DWORD count, Objects *objects) {
    for (DWORD i = 0; i < count; ++i) {
        ObjectRef object = FindObject(handles[i]);
        if (object == nullptr || object->kind == ObjectKind::eventSource) return ERROR_INVALID_HANDLE;
        objects->push_back(std::move(object));
    }
    return ERROR_SUCCESS;
}

} // namespace

DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE *lpHandles, BOOL bWaitAll, DWORD dwMilliseconds) {
    DWORD result = WAIT_FAILED;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpHandles == nullptr || nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS) return ERROR_INVALID_PARAMETER;
        Objects objects;
        if (const DWORD rc = FindAll(lpHandles, nCount, &objects); rc != 0) return rc;
        if (bWaitAll && HasTwice(objects)) return ERROR_INVALID_PARAMETER;
        result = Wait(objects, bWaitAll != FALSE, dwMilliseconds);
        return ERROR_SUCCESS;
    }));
    return result;
}

DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    return WaitForMultipleObjects(1, &hHandle, FALSE, dwMilliseconds);
}
