// SPDX-License-Identifier: MIT
// handles: the table of open handles.
#include "svcapi/handles.h"

#include "svcapi/calls.h"

#include <unistd.h>

#include <unordered_map>

namespace {

constexpr std::uintptr_t firstHandleValue = 0x1000;
constexpr auto closingTimeout =
    std::chrono::seconds(2); // of one call, and of waits for others', while the process exits

struct HandleTable {
    std::mutex guard;
    std::unordered_map<std::uintptr_t, std::shared_ptr<OpenHandle>> open;
    std::uintptr_t next = firstHandleValue;
    bool closesAtExit = false;
};

HandleTable &Table() {
    // Never destroyed: threads may still make calls while the process exits.
    static HandleTable &table = *new HandleTable;
    return table;
}

void GiveBack(OpenHandle &handle, std::chrono::steady_clock::time_point deadline) {
    DaemonLink &link = *handle.link;
    // Another thread may be inside a call; most end soon.
    const std::unique_lock<std::timed_mutex> busy(link.busy, deadline);
    if (!busy.owns_lock() || link.client == nullptr || handle.restarts != link.restarts) return;
    link.timeout = std::min<std::chrono::milliseconds>(link.timeout, closingTimeout);
    if (handle.kind == HandleKind::service) (void)CloseRecord(link, handle.index);
    if (handle.kind == HandleKind::lock) (void)UnlockDatabase(link, handle.lockId);
}

void GiveBackAllHandles() {
    HandleTable &table = Table();
    const std::lock_guard<std::mutex> locked(table.guard);
    const auto deadline = std::chrono::steady_clock::now() + closingTimeout; // for all links: a call may be long
    for (auto &[value, handle] : table.open) {
        if (handle->owner == getpid()) GiveBack(*handle, deadline);
    }
    table.open.clear();
}

std::uintptr_t AsNumber(const void *value) { return reinterpret_cast<std::uintptr_t>(value); }

DWORD BeginCall(const void *value, HandleKind kind, HandleCall *call) {
    call->handle = FindHandle(value, kind);
    if (call->handle == nullptr) return ERROR_INVALID_HANDLE;
    call->busy = std::unique_lock<std::timed_mutex>(call->handle->link->busy);
    return Connect(*call->handle->link);
}

} // namespace

void *AddHandle(OpenHandle handle) {
    HandleTable &table = Table();
    const std::lock_guard<std::mutex> locked(table.guard);
    // Should that fail, the handles are merely not given back.
    if (!table.closesAtExit) table.closesAtExit = std::atexit(GiveBackAllHandles) == 0;
    handle.owner = getpid();
    const std::uintptr_t value = table.next++;
    table.open.emplace(value, std::make_shared<OpenHandle>(std::move(handle)));
    return reinterpret_cast<void *>(value);
}

std::shared_ptr<OpenHandle> FindHandle(const void *value, HandleKind kind) {
    HandleTable &table = Table();
    const std::lock_guard<std::mutex> locked(table.guard);
    const auto found = table.open.find(AsNumber(value));
    return found != table.open.end() && found->second->kind == kind ? found->second : nullptr;
}

std::shared_ptr<OpenHandle> TakeHandle(const void *value, HandleKind kind) {
    HandleTable &table = Table();
    const std::lock_guard<std::mutex> locked(table.guard);
    const auto found = table.open.find(AsNumber(value));
    if (found == table.open.end() || found->second->kind != kind) return nullptr;
    std::shared_ptr<OpenHandle> taken = found->second;
    table.open.erase(found);
    return taken;
}

DWORD BeginManagerCall(const void *value, HandleCall *call) { return BeginCall(value, HandleKind::manager, call); }

DWORD BeginServiceCall(const void *value, HandleCall *call) {
    DWORD rc = BeginCall(value, HandleKind::service, call);
    if (rc != ERROR_SUCCESS) return rc;
    OpenHandle &handle = *call->handle;
    if (handle.restarts == handle.link->restarts) return ERROR_SUCCESS;
    rc = OpenRecord(*handle.link, handle.name.c_str(), &handle.index);
    if (rc != ERROR_SUCCESS) return rc;
    handle.restarts = handle.link->restarts;
    handle.place = {.before = handle.index - 1};
    handle.watch = {};
    return ERROR_SUCCESS;
}
