// SPDX-License-Identifier: MIT
// drain: giving back the handles that programs left open when they were killed.
//
// A service that is marked for deletion goes when its last handle is closed, and the daemon takes a close from anybody,
// by the number of the record. No procedure tells the number of a marked service: it is found by what is left when the
// records of all others with the same display name are put aside.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/record_walk.h"

namespace {

constexpr DWORD mostCloses = 10'000;

// The record of a marked service.
DWORD FindMarked(DaemonLink &link, const std::vector<ListedService> &visible, const std::string &displayName,
                 std::int32_t *record) {
    std::set<std::int32_t> others;
    for (const ListedService &service : visible) {
        if (service.displayName != displayName) continue;
        if (const std::optional<std::int32_t> other = IndexOfOpenable(link, service.name)) others.insert(*other);
    }
    std::vector<WalkedRecord> records;
    const DWORD rc = WalkRecords(link, others, &records);
    if (rc != ERROR_SUCCESS) return rc;
    std::erase_if(records, [&](const WalkedRecord &one) { return one.config.displayName != displayName; });
    if (records.size() != 1) return ERROR_DUP_NAME;
    *record = records.front().index;
    return ERROR_SUCCESS;
}

} // namespace

DWORD DrainHandles(SC_HANDLE manager, const std::string &name, DWORD *closed) {
    if (closed != nullptr) *closed = 0;
    std::vector<ListedService> visible;
    DWORD rc = EnumerateAllServices(manager, &visible);
    if (rc != ERROR_SUCCESS) return rc;
    HandleCall call;
    rc = BeginManagerCall(manager, &call);
    if (rc != ERROR_SUCCESS) return rc;
    DaemonLink &link = *call.handle->link;
    std::string displayName;
    rc = DisplayNameOf(link, name.c_str(), &displayName);
    if (rc != ERROR_SUCCESS) return rc;
    if (IndexOfOpenable(link, name)) return ERROR_INVALID_PARAMETER;
    std::int32_t record = 0;
    rc = FindMarked(link, visible, displayName, &record);
    if (rc != ERROR_SUCCESS) return rc;
    SERVICE_STATUS status = {};
    if (ControlRecord(link, record, peek, &status) == ERROR_INVALID_SERVICE_CONTROL) {
        return ERROR_SERVICE_ALREADY_RUNNING; // closes alone would not end it
    }
    if (closed == nullptr) return ERROR_SUCCESS;
    // Once it is gone the number may be another service's: it is looked at before each close.
    while (rc == ERROR_SUCCESS && *closed < mostCloses) {
        CloseRecord(link, record);
        ++*closed;
        rc = DisplayNameOf(link, name.c_str(), &displayName);
    }
    return rc == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : rc == ERROR_SUCCESS ? ERROR_TIMEOUT : rc;
}
