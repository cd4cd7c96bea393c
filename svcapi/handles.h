// SPDX-License-Identifier: MIT
// handles: the handles that this process has open, and the beginning of every call through one.
//
// Handle values are numbers that are never used twice, so that a stale one is found out. What is still open when the
// process exits is given back to the daemon, which would keep it for ever.
#pragma once

#include "svcapi/listing.h"
#include "svcapi/status_watch.h"

#include <memory>

enum class HandleKind { manager, service, lock };

struct OpenHandle {
    HandleKind kind = HandleKind::manager;
    std::shared_ptr<DaemonLink> link;
    pid_t owner = 0; // a forked child must not give back what its parent has open
    // What follows is guarded by link->busy.
    std::string name;           // service: key name
    std::int32_t index = 0;     // service: its number at the daemon
    ListedPlace place;          // service: where the enumeration has it
    StatusWatch watch;          // service: what was seen of it
    bool isDeleted = false;     // service: marked for deletion through this handle
    std::int32_t lockId = 0;    // lock: its identifier
    std::uint32_t restarts = 0; // service, lock: link->restarts when it was opened
};

// A call under way: the handle, its link locked and connected.
struct HandleCall {
    std::shared_ptr<OpenHandle> handle;
    std::unique_lock<std::timed_mutex> busy;
};

// Returns the new handle's value.
[[nodiscard]] void *AddHandle(OpenHandle handle);
// Null when there is no such handle of this kind.
[[nodiscard]] std::shared_ptr<OpenHandle> FindHandle(const void *value, HandleKind kind);
// The same, and the value means nothing from now on.
[[nodiscard]] std::shared_ptr<OpenHandle> TakeHandle(const void *value, HandleKind kind);

// Begin a call: find the handle, lock and connect its link. A service of a daemon that was restarted is opened again
// first. Return 0, 6, 1722, or the code of that open.
[[nodiscard]] DWORD BeginManagerCall(const void *value, HandleCall *call);
[[nodiscard]] DWORD BeginServiceCall(const void *value, HandleCall *call);
