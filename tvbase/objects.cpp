// SPDX-License-Identifier: MIT
// objects: the table of handles.
#include "tvbase/objects.h"

#include <unistd.h>

#include <unordered_map>
#include <utility>

namespace {

using Number = std::uintptr_t;

constexpr Number step = 4;                                // no handle is odd, as on Win32
constexpr Number lastNumber = static_cast<DWORD>(-1) / 2; // far from the pseudo handles

// The two that are not in the table, and are never signalled.
constexpr Number processNumber = static_cast<Number>(-1);
constexpr Number threadNumber = static_cast<Number>(-2);

// Lives for ever: threads may still use it while the process ends.
struct Table {
    std::mutex mutex;
    std::unordered_map<Number, ObjectRef> objects;
    Number last = 0;
    const ObjectRef thisProcess = std::make_shared<Object>(ObjectKind::process);
    const ObjectRef thisThread = std::make_shared<Object>(ObjectKind::thread);
};

Table &TheTable() {
    static Table *const table = new Table;
    return *table;
}

Number NumberOf(HANDLE handle) { return reinterpret_cast<Number>(handle); }

// NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number in the shape of a pointer
HANDLE HandleOf(Number number) { return reinterpret_cast<HANDLE>(number); }

// Numbers start again from the bottom after a billion; the few that are still open are passed over.
Number NextNumber(Table *table) {
    do {
        table->last = table->last >= lastNumber ? step : table->last + step;
    } while (table->objects.contains(table->last));
    return table->last;
}

} // namespace

Object::~Object() {
    if (descriptor >= 0) (void)close(descriptor);
}

ObjectsLock LockObjects() { return ObjectsLock(TheTable().mutex); }

HANDLE OpenObject(const ObjectsLock &, ObjectRef object) {
    const Number number = NextNumber(&TheTable());
    TheTable().objects.emplace(number, std::move(object));
    return HandleOf(number);
}

ObjectRef FindObject(HANDLE handle) {
    Table &table = TheTable();
    const Number number = NumberOf(handle);
    if (number == processNumber) return table.thisProcess;
    if (number == threadNumber) return table.thisThread;
    const ObjectsLock lock = LockObjects();
    const auto found = table.objects.find(number);
    return found == table.objects.end() ? nullptr : found->second;
}

ObjectRef FindObject(HANDLE handle, ObjectKind kind) {
    ObjectRef object = FindObject(handle);
    return object != nullptr && object->kind == kind ? object : nullptr;
}

ObjectRef FindNamedEvent(const ObjectsLock &, const std::string &name) {
    for (const auto &[number, object] : TheTable().objects) {
        if (object->kind == ObjectKind::event && object->name == name) return object;
    }
    return nullptr;
}

DWORD CloseObject(HANDLE handle, bool eventSource) {
    ObjectRef closed; // let go of behind the lock
    const ObjectsLock lock = LockObjects();
    auto &objects = TheTable().objects;
    const auto found = objects.find(NumberOf(handle));
    if (found == objects.end()) return ERROR_INVALID_HANDLE;
    if ((found->second->kind == ObjectKind::eventSource) != eventSource) return ERROR_INVALID_HANDLE;
    closed = std::move(found->second);
    objects.erase(found);
    return ERROR_SUCCESS;
}

bool IsPseudoHandle(HANDLE handle) { return NumberOf(handle) == processNumber || NumberOf(handle) == threadNumber; }

void Signal(const ObjectsLock &, Object *object) {
    object->signalled = true;
    for (Waiter *waiter : object->waiters) {
        waiter->stirred.notify_one();
    }
}

void SignalEnd(const ObjectsLock &lock, Object *object, DWORD exitCode) {
    object->ended = true;
    object->exitCode = exitCode;
    Signal(lock, object);
}

HANDLE GetCurrentProcess() { return HandleOf(processNumber); }

HANDLE GetCurrentThread() { return HandleOf(threadNumber); }
