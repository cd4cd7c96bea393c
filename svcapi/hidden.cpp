// SPDX-License-Identifier: MIT
// hidden: services that the daemon has and no enumeration shows. Nothing tells their names but the look-up by the
// display name, which finds marked ones, too, and of several services of one display name the first.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/record_walk.h"

DWORD EnumerateHiddenServices(SC_HANDLE manager, const std::vector<ListedService> &visible,
                              std::vector<HiddenService> *hidden) {
    HandleCall call;
    DWORD rc = BeginManagerCall(manager, &call);
    if (rc != ERROR_SUCCESS) return rc;
    DaemonLink &link = *call.handle->link;
    std::set<std::string> taken;
    std::set<std::int32_t> shown;
    for (const ListedService &service : visible) {
        taken.insert(service.name);
        if (const std::optional<std::int32_t> index = IndexOfOpenable(link, service.name)) shown.insert(*index);
    }
    std::vector<WalkedRecord> records;
    rc = WalkRecords(link, shown, &records);
    if (rc != ERROR_SUCCESS) return rc;
    for (const WalkedRecord &record : records) {
        HiddenService found;
        found.record = static_cast<DWORD>(record.index);
        found.service.displayName = record.config.displayName;
        found.service.complete = false;
        found.service.status = record.status;
        found.service.status.dwServiceType = record.config.type;
        std::string name;
        rc = KeyNameOf(link, record.config.displayName.c_str(), &name);
        if (rc != ERROR_SUCCESS && rc != ERROR_SERVICE_DOES_NOT_EXIST) return rc;
        if (rc == ERROR_SUCCESS && taken.insert(name).second) {
            found.service.name = name;
            found.isMarked = !IndexOfOpenable(link, name);
        }
        hidden->push_back(std::move(found));
    }
    return ERROR_SUCCESS;
}
