// SPDX-License-Identifier: MIT
// value_findings: values of the registry that the daemon takes, and that do something else than whoever wrote them
// thought.
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winsvc.h"
#include "tvsc/findings.h"
#include "util/shell_quoted.h"
#include "util/string_list.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <strings.h>

#include <algorithm>

namespace {

constexpr DWORD listedTypes = SERVICE_WIN32 | SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER; // by the daemon
constexpr std::size_t wordBytes = 4;

struct Value {
    DWORD code = ERROR_FILE_NOT_FOUND; // the registry's
    DWORD type = REG_NONE;
    std::string data = {};
};

Value ReadIt(HKEY key, const char *name) {
    Value value;
    HeapText data;
    DWORD bytes = 0;
    value.code = ReadWholeValue(key, name, &data, &bytes, &value.type);
    if (value.code == ERROR_SUCCESS) value.data.assign(data.get(), bytes);
    return value;
}

// --- one service ---

void CheckType(HKEY key, const std::string &name, Findings *findings) {
    DWORD type = 0;
    if (ReadNumber(key, typeValue, &type) != ERROR_SUCCESS || (type & listedTypes) != 0) return;
    findings->push_back({FindingLevel::warn, "registry", name,
                         fmt::format("its Type {:#x} is none that is listed", type),
                         "the daemon has it, and no list shows it",
                         fmt::format("tvreg add {} -v Type -t dword -d 16", QuotedServiceKey(name))});
}

void CheckErrorControl(HKEY key, const std::string &name, Findings *findings) {
    DWORD control = 0;
    if (ReadNumber(key, errorControlValue, &control) != ERROR_SUCCESS || control <= SERVICE_ERROR_CRITICAL) return;
    findings->push_back({FindingLevel::warn, "registry", name, fmt::format("its ErrorControl is {:#x}", control),
                         control == SERVICE_NO_CHANGE
                             ? "a program wanted to leave it as it was, and the daemon writes what it is told"
                             : "it is none of ignore, normal, severe and critical",
                         fmt::format("tvsc config {} --error normal", NameArgument(name))});
}

// Keys of Windows have the services here that one depends on.
void CheckAccountValue(HKEY key, const BootDatabase &database, const std::string &name, Findings *findings) {
    const Value account = ReadIt(key, accountValue);
    if (account.code != ERROR_SUCCESS) return;
    const std::string first = account.data.substr(0, account.data.find('\0'));
    std::vector<std::string> wanted =
        account.type == REG_MULTI_SZ ? SplitMultiString(account.data) : std::vector<std::string>{first};
    const bool isService = std::any_of(database.services.begin(), database.services.end(), [&](const BootService &one) {
        return strcasecmp(one.name.c_str(), first.c_str()) == 0;
    });
    if (account.type != REG_MULTI_SZ && !isService) return;
    for (const BootService &one : database.services) { // "--depends" takes the whole list
        if (one.name == name) wanted.insert(wanted.begin(), one.dependencies.begin(), one.dependencies.end());
    }
    findings->push_back(
        {FindingLevel::fail, "start", name,
         isService ? fmt::format("its DependOnService names the service {}", first) : "its DependOnService is a list",
         "this value holds the Unix user that it runs as; dependencies stand in DependOnGroup",
         fmt::format("tvreg delete {0} -v {1} && tvsc config {2} {3}", QuotedServiceKey(name), accountValue,
                     NameArgument(name),
                     OptionArgument("--depends", first.empty() ? "..." : fmt::to_string(fmt::join(wanted, ","))))});
}

// Names of services are compared by their bytes.
void CheckLetterCase(const BootDatabase &database, const BootService &service, Findings *findings) {
    for (const std::string &dependency : service.dependencies) {
        const auto isIt = [&](const BootService &one) { return one.name == dependency; };
        if (std::any_of(database.services.begin(), database.services.end(), isIt)) continue;
        const auto meant =
            std::find_if(database.services.begin(), database.services.end(),
                         [&](const BootService &one) { return strcasecmp(one.name.c_str(), dependency.c_str()) == 0; });
        if (meant == database.services.end()) continue;
        std::vector<std::string> wanted = service.dependencies; // "--depends" takes the whole list
        std::replace(wanted.begin(), wanted.end(), dependency, meant->name);
        findings->push_back({FindingLevel::warn, "dependencies", service.name,
                             fmt::format("depends on {}, and the service is {}", dependency, meant->name),
                             "letter case counts: the daemon passes it over",
                             fmt::format("tvsc config {} {}", NameArgument(service.name),
                                         OptionArgument("--depends", fmt::to_string(fmt::join(wanted, ","))))});
    }
}

// --- tags ---

void CheckGroupOrder(HKEY machine, Findings *findings) {
    HKEY key = 0;
    if (RegOpenKeyExA(machine, groupOrderKeyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    const KeyGuard closed(&key);
    const Value list = ReadIt(key, groupOrderValue);
    if (list.code != ERROR_SUCCESS) return; // ends the load, told there
    const bool namesNothing = std::all_of(list.data.begin(), list.data.end(), [](char c) { return c == '\0'; });
    const bool isOpen = !namesNothing && !list.data.ends_with(std::string(2, '\0'));
    if (!namesNothing && !isOpen) return;
    findings->push_back(
        {FindingLevel::warn, "registry", "ServiceGroupOrder",
         namesNothing ? "its List names no groups" : "its List does not end with an empty name",
         namesNothing ? "groups come in the order in which services name them" : "other programs may read on behind it",
         fmt::format("tvreg add {} -v List -t multi -d GROUP ...", QuotedKey(groupOrderKeyPath))});
}

// The tags of a group: a count, then as many words.
void CheckTagOrder(HKEY machine, HKEY key, const BootDatabase &database, const BootGroup &group, Findings *findings) {
    const Value order = ReadIt(key, group.name.c_str());
    if (order.code != ERROR_SUCCESS) return;
    const std::string add =
        fmt::format("tvreg add {} -v {} -t binary -d ...", QuotedKey(tagOrderKeyPath), ShellQuoted(group.name));
    if (order.data.size() % wordBytes != 0 || order.data.size() < wordBytes) {
        findings->push_back(
            {FindingLevel::warn, "registry", "GroupOrderList",
             fmt::format("its value {} has {} bytes, which are no words", group.name, order.data.size()),
             "tags behind the last whole word are not looked at", add});
    }
    for (const std::size_t member : group.members) {
        HKEY service = 0;
        const std::string &name = database.services[member].name;
        const std::string path = fmt::format("{}\\{}", servicesKeyPath, name);
        if (RegOpenKeyExA(machine, path.c_str(), 0, KEY_READ, &service) != ERROR_SUCCESS) continue;
        const KeyGuard closed(&service);
        DWORD tag = 0;
        if (ReadNumber(service, tagValue, &tag) != ERROR_FILE_NOT_FOUND || database.services[member].tag == 0) continue;
        findings->push_back(
            {FindingLevel::warn, "registry", name,
             fmt::format("has no Tag in group {}, whose tags are ordered", group.name),
             fmt::format("it gets {}, the tag of the service loaded before it", database.services[member].tag),
             fmt::format("tvreg add {} -v Tag -t dword -d ...", QuotedServiceKey(name))});
    }
}

void CheckTagOrders(HKEY machine, const BootDatabase &database, Findings *findings) {
    HKEY key = 0;
    if (RegOpenKeyExA(machine, tagOrderKeyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
    const KeyGuard closed(&key);
    for (const BootGroup &group : database.groups) {
        CheckTagOrder(machine, key, database, group, findings);
    }
}

} // namespace

void CheckValues(HKEY machine, const BootDatabase &database, Findings *findings) {
    CheckGroupOrder(machine, findings);
    CheckTagOrders(machine, database, findings);
    HKEY services = 0;
    if (RegOpenKeyExA(machine, servicesKeyPath, 0, KEY_READ, &services) != ERROR_SUCCESS) return;
    const KeyGuard servicesClosed(&services);
    for (const BootService &service : database.services) {
        CheckLetterCase(database, service, findings);
        HKEY key = 0;
        if (RegOpenKeyExA(services, service.name.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) continue;
        const KeyGuard closed(&key);
        CheckType(key, service.name, findings);
        CheckErrorControl(key, service.name, findings);
        CheckAccountValue(key, database, service.name, findings);
    }
}
