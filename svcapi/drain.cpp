// SPDX-License-Identifier: MIT
// drain: giving back the handles that programs left open when they were killed.
//
// A service that is marked for deletion goes when its last handle is closed, and the daemon takes a close from anybody,
// by the number of the record. No procedure tells the number of a marked service: it is found by what is left when the
// records of all others with the same display name are put aside.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"

#include <algorithm>

namespace {

constexpr std::int32_t recordsInStep = 50; // by which the daemon's array grows
constexpr std::int32_t peek = 0;           // a control that no service takes: it tells the state, and touches nothing
constexpr DWORD mostCloses = 10'000;

bool IsPast(DaemonLink &link, std::int32_t index) {
    std::int32_t resume = index, needed = 0;
    const auto ignored = [](const ListedView & /*service*/) {}; // there is no room for any
    const DWORD rc = EnumerateRecords(link, SERVICE_WIN32, SERVICE_STATE_ALL, 0, &resume, &needed, ignored);
    return rc == ERROR_INVALID_PARAMETER;
}

// The number of a record that can be opened by its name; nothing for another one.
std::optional<std::int32_t> IndexOf(DaemonLink &link, const std::string &name) {
    std::int32_t index = 0;
    if (OpenRecord(link, name.c_str(), &index) != ERROR_SUCCESS) return std::nullopt;
    CloseRecord(link, index);
    return index;
}

// The records of a display name.
DWORD RecordsNamed(DaemonLink &link, const std::string &displayName, std::vector<std::int32_t> *records) {
    for (std::int32_t index = 0; (index + 1) % recordsInStep != 0 || !IsPast(link, index); ++index) {
        SERVICE_STATUS status = {};
        const DWORD rc = ControlRecord(link, index, peek, &status);
        if (rc == ERROR_INVALID_HANDLE) continue; // a free one
        if (rc != ERROR_SERVICE_NOT_ACTIVE && rc != ERROR_INVALID_SERVICE_CONTROL) return rc;
        ServiceConfig config;
        DWORD ignored = 0; // 6 stays in the daemon's answers once it was one
        if (const DWORD read = QueryRecordConfig(link, index, &config, &ignored); read != ERROR_SUCCESS) return read;
        if (config.displayName == displayName) records->push_back(index);
    }
    return ERROR_SUCCESS;
}

// The record of a marked service.
DWORD FindMarked(DaemonLink &link, const std::vector<ListedService> &visible, const std::string &displayName,
                 std::int32_t *record) {
    std::vector<std::int32_t> records;
    const DWORD rc = RecordsNamed(link, displayName, &records);
    if (rc != ERROR_SUCCESS) return rc;
    for (const ListedService &service : visible) {
        if (service.displayName != displayName) continue;
        const std::optional<std::int32_t> other = IndexOf(link, service.name);
        std::erase_if(records, [&](std::int32_t one) { return one == other; });
    }
    if (records.size() != 1) return ERROR_DUP_NAME;
    *record = records.front();
    return ERROR_SUCCESS;
}

} // namespace

DWORD DrainHandles(SC_HANDLE manager, const std::string &name, DWORD *closed) {
    *closed = 0;
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
    if (IndexOf(link, name)) return ERROR_INVALID_PARAMETER;
    std::int32_t record = 0;
    rc = FindMarked(link, visible, displayName, &record);
    if (rc != ERROR_SUCCESS) return rc;
    SERVICE_STATUS status = {};
    if (ControlRecord(link, record, peek, &status) == ERROR_INVALID_SERVICE_CONTROL) {
        return ERROR_SERVICE_ALREADY_RUNNING; // closes alone would not end it
    }
    // Once it is gone the number may be another service's: it is looked at before each close.
    while (rc == ERROR_SUCCESS && *closed < mostCloses) {
        CloseRecord(link, record);
        ++*closed;
        rc = DisplayNameOf(link, name.c_str(), &displayName);
    }
    return rc == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : rc == ERROR_SUCCESS ? ERROR_TIMEOUT : rc;
}
