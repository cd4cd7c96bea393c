// SPDX-License-Identifier: MIT
// boot_registry: reads the services as the daemon loads them: the same values in the same order, into buffers of the
// same sizes, so that what would end its load ends this, too.
//
// A loader of its own beside the daemon's (servd/servd_svc_proc/load.cpp): that one creates, deletes and files in its
// lists between two reads; this one leaves the registry as it is, tells which value is at fault, and reads on to values
// that a load leaves for later. A change of the one is a change of the other: tests/unit/load_order_property_test.cpp
// holds both against one model.
#include "tvsc/boot_plan.h"

#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/little_endian.h"
#include "util/string_list.h"

#include <algorithm>
#include <unordered_map>

namespace {

DWORD OpenKey(HKEY parent, const char *path, HKEY *key) {
    return static_cast<DWORD>(RegOpenKeyExA(parent, path, 0, KEY_READ, key));
}

DWORD ReadText(HKEY key, const char *name, std::string *text) {
    TextBuffer buffer = {};
    const DWORD rc = ::ReadText(key, name, buffer);
    if (rc == ERROR_SUCCESS) *text = buffer;
    return rc;
}

// A value of any length that the daemon takes.
DWORD ReadBytes(HKEY key, const char *name, std::string *data) {
    HeapText value;
    DWORD bytes = 0;
    const DWORD rc = ReadWholeValue(key, name, &value, &bytes);
    if (rc == ERROR_SUCCESS) data->assign(value.get(), bytes);
    return rc;
}

bool IsOptional(DWORD code) { return code == ERROR_SUCCESS || code == ERROR_FILE_NOT_FOUND; }

// The database under construction.
struct Load {
    BootDatabase *database;
    std::unordered_map<std::string, std::size_t> groupsByName; // the first of each name
    DWORD tag = 0;                                             // of the service before
    std::vector<BootFault> *faults = nullptr;                  // where to note them all
};

// A fault ends the load, unless all are wanted: then it is noted, and nothing comes back.
std::optional<BootFault> NoteFault(Load &load, BootFault fault) {
    if (load.faults == nullptr) return fault;
    load.faults->push_back(std::move(fault));
    return {};
}

std::size_t AddGroup(Load &load, const std::string &name) {
    load.database->groups.push_back({name, {}});
    load.groupsByName.emplace(name, load.database->groups.size() - 1);
    return load.database->groups.size() - 1;
}

std::optional<BootFault> ReadGroupOrder(Load &load, HKEY machine) {
    HKEY key = 0;
    DWORD rc = OpenKey(machine, groupOrderKeyPath, &key);
    if (rc == ERROR_FILE_NOT_FOUND) return {};
    if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "ServiceGroupOrder", ""});
    const KeyGuard closeKey(&key);
    std::string data;
    rc = ReadBytes(key, groupOrderValue, &data);
    if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "ServiceGroupOrder", groupOrderValue});
    data.erase(0, std::min(data.find_first_not_of('\0'), data.size()));
    for (const std::string &name : SplitMultiString(data)) {
        (void)AddGroup(load, name);
    }
    load.database->orderedGroups = load.database->groups.size();
    return {};
}

// A service joins the front of its group.
void JoinGroup(Load &load, const std::string &group, std::size_t service) {
    const auto found = load.groupsByName.find(group);
    const std::size_t index = found != load.groupsByName.end() ? found->second : AddGroup(load, group);
    std::vector<std::size_t> &members = load.database->groups[index].members;
    members.push_back(service); // turned round when all are there
}

// What the load leaves for later, and so cannot fail in it.
void ReadLateValues(HKEY key, BootService *service) {
    DWORD start = 0;
    if (ReadNumber(key, startTypeValue, &start) == ERROR_SUCCESS) service->start = start;
    std::string names;
    const DWORD rc = ReadBytes(key, dependenciesValue, &names);
    if (!IsOptional(rc)) service->dependenciesCode = rc;
    if (rc == ERROR_SUCCESS) service->dependencies = SplitMultiString(names);
}

std::optional<BootFault> ReadService(Load &load, HKEY key, const std::string &name) {
    BootService service = {.name = name};
    std::optional<BootFault> fault;
    const auto isFault = [&](DWORD code, const char *value) {
        fault = NoteFault(load, {code, name, value});
        return fault.has_value();
    };
    DWORD type = 0;
    DWORD rc = ReadNumber(key, typeValue, &type);
    if (rc != ERROR_SUCCESS && isFault(rc, typeValue)) return fault;
    rc = ReadNumber(key, tagValue, &load.tag);
    if (!IsOptional(rc) && isFault(rc, tagValue)) return fault;
    rc = ReadText(key, displayNameValue, &service.displayName);
    if (rc != ERROR_SUCCESS && isFault(rc, displayNameValue)) return fault;
    service.tag = load.tag;
    std::string group;
    const DWORD groupCode = ReadText(key, groupValue, &group);
    if (!IsOptional(groupCode) && isFault(groupCode, groupValue)) return fault;
    rc = ReadText(key, imagePathValue, &service.imagePath);
    if (!IsOptional(rc) && isFault(rc, imagePathValue)) return fault;
    ReadLateValues(key, &service);
    load.database->services.push_back(std::move(service));
    if (groupCode == ERROR_SUCCESS) JoinGroup(load, group, load.database->services.size() - 1);
    return {};
}

std::optional<BootFault> ReadServices(Load &load, HKEY machine) {
    HKEY services = 0;
    DWORD rc = OpenKey(machine, servicesKeyPath, &services);
    if (rc == ERROR_FILE_NOT_FOUND) return {}; // the daemon makes it
    if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "Services", ""});
    const KeyGuard closeServices(&services);
    for (DWORD index = 0;; ++index) {
        TextBuffer name = {};
        DWORD nameBytes = textBytes;
        rc = static_cast<DWORD>(RegEnumKeyExA(services, index, name, &nameBytes, nullptr, nullptr, nullptr, nullptr));
        if (rc == ERROR_NO_MORE_ITEMS) return {};
        if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "Services", ""});
        HKEY key = 0;
        rc = OpenKey(services, name, &key);
        std::optional<BootFault> fault;
        if (rc != ERROR_SUCCESS) {
            fault = NoteFault(load, {rc, name, ""});
            if (fault) return fault;
            continue;
        }
        const KeyGuard closeKey(&key);
        DWORD flag = 0;
        rc = ReadNumber(key, deleteFlagValue, &flag);
        if (rc == ERROR_SUCCESS) {
            load.database->deleted.emplace_back(name);
        } else {
            fault = IsOptional(rc) ? ReadService(load, key, name) : NoteFault(load, {rc, name, deleteFlagValue});
        }
        if (fault) return fault;
    }
}

// One member for each tag that finds one, then the rest as they stood. The count in front is not looked at.
void SortByTags(const BootDatabase &database, const std::string &vector, std::vector<std::size_t> *members) {
    struct Bearers {
        std::vector<std::size_t> members; // in their order
        std::size_t taken = 0;
        std::size_t passed = 0;
    };
    std::unordered_map<DWORD, Bearers> bearersOf; // of each tag
    for (const std::size_t member : *members) {
        bearersOf[database.services[member].tag].members.push_back(member);
    }
    std::vector<std::size_t> sorted;
    for (std::size_t offset = dwordBytes; offset + dwordBytes <= vector.size(); offset += dwordBytes) {
        const auto found = bearersOf.find(DwordAt(vector.data() + offset));
        if (found == bearersOf.end() || found->second.taken == found->second.members.size()) continue;
        sorted.push_back(found->second.members[found->second.taken++]);
    }
    for (const std::size_t member : *members) {
        Bearers &bearers = bearersOf[database.services[member].tag];
        if (bearers.passed++ >= bearers.taken) sorted.push_back(member);
    }
    *members = std::move(sorted);
}

std::optional<BootFault> SortGroups(Load &load, HKEY machine) {
    HKEY key = 0;
    DWORD rc = OpenKey(machine, tagOrderKeyPath, &key);
    if (rc == ERROR_FILE_NOT_FOUND) return {};
    if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "GroupOrderList", ""});
    const KeyGuard closeKey(&key);
    for (BootGroup &group : load.database->groups) {
        std::string vector;
        rc = ReadBytes(key, group.name.c_str(), &vector);
        if (!IsOptional(rc)) {
            std::optional<BootFault> fault = NoteFault(load, {rc, "GroupOrderList", group.name});
            if (fault) return fault;
        }
        SortByTags(*load.database, vector, &group.members);
    }
    return {};
}

} // namespace

std::optional<BootFault> ReadBootDatabase(HKEY machine, BootDatabase *database, std::vector<BootFault> *faults) {
    Load load = {.database = database, .groupsByName = {}, .faults = faults};
    std::optional<BootFault> fault = ReadGroupOrder(load, machine);
    if (!fault) fault = ReadServices(load, machine);
    for (BootGroup &group : database->groups) {
        std::reverse(group.members.begin(), group.members.end());
    }
    return fault ? fault : SortGroups(load, machine);
}
