// SPDX-License-Identifier: MIT
// record_walk: a record in use answers a control that no service takes; a free one does not.
#include "svcapi/record_walk.h"

#include "svcapi/calls.h"

#include <algorithm>

namespace {

constexpr std::int32_t recordsInStep = 50; // by which the daemon's array grows
constexpr char nobodysAccount[] = ":";     // in a user database of lines no name has a colon in it

bool IsPast(DaemonLink &link, std::int32_t index) {
    std::int32_t resume = index, needed = 0;
    ServiceList none; // there is no room for any
    const DWORD rc = EnumerateRecords(link, SERVICE_WIN32, SERVICE_STATE_ALL, 0, &resume, &needed, &none);
    return rc == ERROR_INVALID_PARAMETER;
}

// A display name that is taken whatever becomes of this record; null for none. It is another one than the record's own:
// what was read of a record that went meanwhile may be what was read before it.
const std::string *DisplayNameOfAnother(const WalkedRecord &record, const std::vector<WalkedRecord> &records) {
    const auto isTaken = [&](const WalkedRecord &other) {
        const std::string &name = other.config.displayName;
        return other.index != record.index && !name.empty() && name != record.config.displayName;
    };
    const auto other = std::find_if(records.begin(), records.end(), isTaken);
    return other != records.end() ? &other->config.displayName : nullptr;
}

} // namespace

DWORD WalkStates(DaemonLink &link, const std::set<std::int32_t> &leftOut, std::vector<WalkedRecord> *records) {
    for (std::int32_t index = 0; (index + 1) % recordsInStep != 0 || !IsPast(link, index); ++index) {
        if (leftOut.contains(index)) continue;
        WalkedRecord record = {.index = index, .status = {}, .config = {}};
        const DWORD rc = ControlRecord(link, index, peek, &record.status);
        if (rc == ERROR_INVALID_HANDLE) continue; // a free one
        if (rc != ERROR_SERVICE_NOT_ACTIVE && rc != ERROR_INVALID_SERVICE_CONTROL) return rc;
        records->push_back(std::move(record));
    }
    return ERROR_SUCCESS;
}

DWORD ReadWalkedConfigs(DaemonLink &link, std::vector<WalkedRecord> *records) {
    for (WalkedRecord &record : *records) {
        DWORD ignored = 0; // 6 stays in the daemon's answers once it was one
        const DWORD rc = QueryRecordConfig(link, record.index, &record.config, &ignored);
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

DWORD WalkRecords(DaemonLink &link, const std::set<std::int32_t> &leftOut, std::vector<WalkedRecord> *records) {
    const DWORD rc = WalkStates(link, leftOut, records);
    return rc != ERROR_SUCCESS ? rc : ReadWalkedConfigs(link, records);
}

DWORD AskIfRecordMarked(DaemonLink &link, const WalkedRecord &record, const std::vector<WalkedRecord> &records,
                        std::optional<bool> *marked) {
    marked->reset();
    const std::string *taken = DisplayNameOfAnother(record, records);
    if (taken == nullptr) return ERROR_SUCCESS;
    servd_SERV_CHANGE_CONFIG_SERVICE change = {};
    change.handle = record.index;
    change.serviceType = change.startType = SERVICE_NO_CHANGE;
    change.errorControl = record.config.errorControl; // the one number that the daemon would write in any case
    change.displayName = {static_cast<std::uint32_t>(taken->size() + 1), Borrowed(taken->c_str())};
    change.account = {sizeof nobodysAccount, Borrowed(nobodysAccount)};
    const DWORD rc = ChangeRecordConfig(link, change, nullptr);
    const bool isRefused = rc == ERROR_DUP_NAME || rc == ERROR_INVALID_SERVICE_ACCOUNT;
    if (!isRefused && rc != ERROR_SERVICE_MARKED_FOR_DELETE) return rc;
    *marked = !isRefused;
    return ERROR_SUCCESS;
}

std::optional<std::int32_t> IndexOfOpenable(DaemonLink &link, const std::string &name) {
    std::int32_t index = 0;
    if (OpenRecord(link, name.c_str(), &index) != ERROR_SUCCESS) return std::nullopt;
    CloseRecord(link, index);
    return index;
}
