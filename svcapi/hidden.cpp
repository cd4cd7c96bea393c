// SPDX-License-Identifier: MIT
// hidden: services that the daemon has and no enumeration shows. Nothing tells their names but the look-up by the
// display name, which finds marked ones, too, and of several services of one display name the first.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/record_walk.h"

#include <map>

namespace {

// The records of services that are shown. Where a display name is that of as many services as of records these are
// theirs; else its services are opened, and closed again, to be told from the others.
std::set<std::int32_t> ShownRecords(DaemonLink &link, const std::vector<ListedService> &visible,
                                    const std::vector<WalkedRecord> &records) {
    std::map<std::string, std::vector<std::int32_t>> walked;
    for (const WalkedRecord &record : records) {
        walked[record.config.displayName].push_back(record.index);
    }
    std::map<std::string, std::set<std::string>> names; // by display name; one of both classes is enumerated twice
    for (const ListedService &service : visible) {
        names[service.displayName].insert(service.name);
    }
    std::set<std::int32_t> shown;
    for (const ListedService &service : visible) {
        const std::vector<std::int32_t> &bearers = walked[service.displayName];
        if (bearers.size() == names[service.displayName].size()) {
            shown.insert(bearers.begin(), bearers.end());
        } else if (const std::optional<std::int32_t> index = IndexOfOpenable(link, service.name)) {
            shown.insert(*index);
        }
    }
    return shown;
}

// What can be told of one but its mark. taken: the names that are another one's.
DWORD DescribeHidden(DaemonLink &link, const WalkedRecord &record, std::set<std::string> *taken,
                     HiddenService *hidden) {
    hidden->record = static_cast<DWORD>(record.index);
    hidden->service.displayName = record.config.displayName;
    hidden->service.complete = false;
    hidden->service.status = record.status;
    hidden->service.status.dwServiceType = record.config.type;
    std::string name;
    const DWORD rc = KeyNameOf(link, record.config.displayName.c_str(), &name);
    if (rc != ERROR_SUCCESS && rc != ERROR_SERVICE_DOES_NOT_EXIST) return rc;
    if (rc == ERROR_SUCCESS && taken->insert(name).second) hidden->service.name = name;
    return ERROR_SUCCESS;
}

} // namespace

DWORD EnumerateHiddenServices(SC_HANDLE manager, HiddenLook look, const std::vector<ListedService> &visible,
                              std::vector<HiddenService> *hidden) {
    HandleCall call;
    DWORD rc = BeginManagerCall(manager, &call);
    if (rc != ERROR_SUCCESS) return rc;
    DaemonLink &link = *call.handle->link;
    std::vector<WalkedRecord> records;
    rc = WalkStates(link, {}, &records);
    if (rc != ERROR_SUCCESS) return rc;
    std::set<std::string> taken;
    for (const ListedService &service : visible) {
        taken.insert(service.name);
    }
    if (look == HiddenLook::marks && records.size() == taken.size()) return ERROR_SUCCESS; // as a rule
    rc = ReadWalkedConfigs(link, &records);
    if (rc != ERROR_SUCCESS) return rc;
    const std::set<std::int32_t> shown = ShownRecords(link, visible, records);
    for (const WalkedRecord &record : records) {
        if (shown.contains(record.index)) continue;
        HiddenService found;
        rc = DescribeHidden(link, record, &taken, &found);
        if (rc == ERROR_SUCCESS && look == HiddenLook::marks) {
            rc = AskIfRecordMarked(link, record, records, &found.deletePending);
        }
        if (rc == ERROR_INVALID_HANDLE) continue; // gone since
        if (rc != ERROR_SUCCESS) return rc;
        hidden->push_back(std::move(found));
    }
    return ERROR_SUCCESS;
}
