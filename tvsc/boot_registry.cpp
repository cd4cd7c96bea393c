// SPDX-License-Identifier: MIT
// boot_registry: reads the services as the daemon loads them: the same values, into buffers of the same sizes and
// looked at in the same order, so that what would end its load ends this, too. They are read in batches, hundreds of
// requests on their way at once, and a batch is read before any of it is looked at.
//
// A loader of its own beside the daemon's (servd/servd_svc_proc/load.cpp): that one creates, deletes and files in its
// lists between two reads; this one leaves the registry as it is, tells which value is at fault, and reads on to values
// that a load leaves for later. A change of the one is a change of the other: tests/unit/load_order_property_test.cpp
// holds both against one model.
#include "tvsc/boot_plan.h"

#include "registry/pipeline.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/little_endian.h"
#include "util/string_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>

namespace {

DWORD OpenKey(HKEY parent, const char *path, HKEY *key) {
    return static_cast<DWORD>(RegOpenKeyExA(parent, path, 0, KEY_READ, key));
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
    bool readsTogether = true;                                 // until that fails once
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

// --- the keys of the services, a batch at a time ---

constexpr std::size_t firstBatch = 16; // they grow: a short list is not asked for far behind its end
constexpr std::size_t longestBatch = 128;

enum Field {
    deleteFlagField,
    typeField,
    tagField,
    displayNameField,
    groupField,
    imagePathField,
    startField,
    dependenciesField,
    accountField
};
constexpr std::array fieldValues = {deleteFlagValue, typeValue,      tagValue,          displayNameValue, groupValue,
                                    imagePathValue,  startTypeValue, dependenciesValue, accountValue};

bool IsNumber(std::size_t field) { return field <= tagField || field == startField; }

// One value as it came.
struct Value {
    DWORD code;
    DWORD bytes;     // its size; there is room for textBytes of them
    TextBuffer data; // a zero behind the last of them
};

// One key below the services key.
struct ServiceKey {
    DWORD code; // of its enumeration, then of its opening
    HKEY key;
    TextBuffer name;
    std::array<Value, fieldValues.size()> values;
};

using Reads = std::vector<RegistryRead>;

void Read(Load &load, Reads *reads) {
    const std::size_t answered = load.readsTogether ? ReadTogether(reads->data(), reads->size()) : 0;
    if (answered == reads->size()) return;
    load.readsTogether = false;
    // An answered one says how much came, no longer how much room there is.
    ReadInTurn(reads->data() + answered, reads->size() - answered);
}

// Returns how many there are; the last of them tells with its code why there are no more.
std::size_t EnumerateKeys(Load &load, HKEY services, DWORD first, std::vector<ServiceKey> *keys) {
    Reads reads;
    for (ServiceKey &key : *keys) {
        RegistryRead &read = reads.emplace_back(NewRead(RegistryRead::enumKey, services));
        read.index = first + static_cast<DWORD>(reads.size() - 1);
        read.data = reinterpret_cast<BYTE *>(key.name);
        read.dataBytes = textBytes;
    }
    Read(load, &reads);
    for (std::size_t i = 0; i < keys->size(); ++i) {
        (*keys)[i].code = static_cast<DWORD>(reads[i].code);
        if (reads[i].code != ERROR_SUCCESS) return i + 1;
    }
    return keys->size();
}

void OpenKeys(Load &load, HKEY services, std::vector<ServiceKey> *keys) {
    Reads reads;
    for (const ServiceKey &key : *keys) {
        reads.push_back(NewRead(RegistryRead::openKey, services, key.name));
    }
    Read(load, &reads);
    for (std::size_t i = 0; i < keys->size(); ++i) {
        (*keys)[i].code = static_cast<DWORD>(reads[i].code);
        (*keys)[i].key = reads[i].opened;
    }
}

void ReadValues(Load &load, std::vector<ServiceKey> *keys) {
    Reads reads;
    for (ServiceKey &key : *keys) {
        if (key.code != ERROR_SUCCESS) continue;
        for (std::size_t field = 0; field < fieldValues.size(); ++field) {
            RegistryRead &read = reads.emplace_back(NewRead(RegistryRead::queryValue, key.key, fieldValues[field]));
            read.data = reinterpret_cast<BYTE *>(key.values[field].data);
            read.dataBytes = IsNumber(field) ? dwordBytes : textBytes;
        }
    }
    Read(load, &reads);
    auto read = reads.begin();
    for (ServiceKey &key : *keys) {
        if (key.code != ERROR_SUCCESS) continue;
        for (Value &value : key.values) {
            value.code = static_cast<DWORD>(read->code);
            value.bytes = read->dataBytes;
            ++read;
        }
    }
}

void CloseKeys(Load &load, const std::vector<ServiceKey> &keys) {
    Reads reads;
    for (const ServiceKey &key : keys) {
        if (key.code == ERROR_SUCCESS) reads.push_back(NewRead(RegistryRead::closeKey, key.key));
    }
    Read(load, &reads);
}

// --- what is in them ---

DWORD NumberIn(const Value &value) {
    DWORD number = 0;
    std::memcpy(&number, value.data, sizeof number);
    return number;
}

// What the load leaves for later, and so cannot fail in it.
void TakeLateValues(const ServiceKey &key, BootService *service) {
    const Value &start = key.values[startField];
    if (start.code == ERROR_SUCCESS) service->start = NumberIn(start);
    const Value &dependencies = key.values[dependenciesField];
    std::string names(dependencies.data, std::min<std::size_t>(dependencies.bytes, textBytes));
    const bool isLonger = dependencies.code == ERROR_MORE_DATA || dependencies.bytes > textBytes;
    const DWORD rc = isLonger ? ReadBytes(key.key, dependenciesValue, &names) : dependencies.code;
    if (!IsOptional(rc)) service->dependenciesCode = rc;
    if (rc == ERROR_SUCCESS) service->dependencies = SplitMultiString(names);
    const Value &account = key.values[accountField];
    if (account.code == ERROR_SUCCESS) service->account = account.data;
}

std::optional<BootFault> TakeService(Load &load, const ServiceKey &key) {
    BootService service = {.name = key.name};
    std::optional<BootFault> fault;
    // A value that the daemon cannot do without, or takes if it is there.
    const auto isMissing = [&](Field field) {
        const DWORD code = key.values[field].code;
        const bool isRequired = field == typeField || field == displayNameField;
        if (isRequired ? code == ERROR_SUCCESS : IsOptional(code)) return false;
        fault = NoteFault(load, {code, key.name, fieldValues[field]});
        return fault.has_value();
    };
    const auto isThere = [&](Field field) { return key.values[field].code == ERROR_SUCCESS; };
    if (isMissing(typeField)) return fault;
    if (isThere(typeField)) service.type = NumberIn(key.values[typeField]);
    if (isMissing(tagField)) return fault;
    if (isThere(tagField)) load.tag = NumberIn(key.values[tagField]);
    service.tag = load.tag;
    if (isMissing(displayNameField)) return fault;
    if (isThere(displayNameField)) service.displayName = key.values[displayNameField].data;
    if (isMissing(groupField)) return fault;
    if (isMissing(imagePathField)) return fault;
    if (isThere(imagePathField)) service.imagePath = key.values[imagePathField].data;
    TakeLateValues(key, &service);
    load.database->services.push_back(std::move(service));
    if (isThere(groupField)) JoinGroup(load, key.values[groupField].data, load.database->services.size() - 1);
    return {};
}

std::optional<BootFault> TakeKey(Load &load, const ServiceKey &key) {
    if (key.code != ERROR_SUCCESS) return NoteFault(load, {key.code, key.name, ""});
    const DWORD flag = key.values[deleteFlagField].code;
    if (flag == ERROR_SUCCESS) {
        load.database->deleted.emplace_back(key.name);
        return {};
    }
    return IsOptional(flag) ? TakeService(load, key) : NoteFault(load, {flag, key.name, deleteFlagValue});
}

// Reads the batch that begins at an index and takes what is in it. *end: the code with which the enumeration ended, 0
// when it goes on.
std::optional<BootFault> ReadBatch(Load &load, HKEY services, DWORD first, std::vector<ServiceKey> *keys, DWORD *end) {
    const std::size_t count = EnumerateKeys(load, services, first, keys);
    *end = (*keys)[count - 1].code;
    keys->resize(*end == ERROR_SUCCESS ? count : count - 1);
    OpenKeys(load, services, keys);
    ReadValues(load, keys);
    std::optional<BootFault> fault;
    for (std::size_t i = 0; !fault && i < keys->size(); ++i) {
        fault = TakeKey(load, (*keys)[i]);
    }
    CloseKeys(load, *keys);
    return fault;
}

std::optional<BootFault> ReadServices(Load &load, HKEY machine) {
    HKEY services = 0;
    const DWORD rc = OpenKey(machine, servicesKeyPath, &services);
    if (rc == ERROR_FILE_NOT_FOUND) return {}; // the daemon makes it
    if (rc != ERROR_SUCCESS) return NoteFault(load, {rc, "Services", ""});
    const KeyGuard closeServices(&services);
    std::vector<ServiceKey> keys(firstBatch);
    for (DWORD first = 0;; first += static_cast<DWORD>(keys.size()), keys.resize(longestBatch)) {
        DWORD end = ERROR_SUCCESS;
        const std::optional<BootFault> fault = ReadBatch(load, services, first, &keys, &end);
        if (fault || end == ERROR_NO_MORE_ITEMS) return fault;
        if (end != ERROR_SUCCESS) return NoteFault(load, {end, "Services", ""});
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
