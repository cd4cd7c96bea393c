// SPDX-License-Identifier: MIT
// fix_services: what is changed in a key, one value after the other.
#include "tvreg/fix_services.h"

#include "tvreg/value_text.h"
#include "util/ktl_strings.h"
#include "util/string_list.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

constexpr std::string_view numberedSet = "ControlSet"; // and a number

bool IsSameName(std::string_view a, std::string_view b) {
    return _ktl_strcasecmp(std::string(a).c_str(), std::string(b).c_str()) == 0;
}

// The name of the service whose key this is; empty for any other key.
std::string_view ServiceOf(const KeyPath &key) {
    std::vector<std::string_view> names;
    for (std::string_view rest = key.path; !rest.empty();) {
        const std::size_t length = std::min(rest.find('\\'), rest.size());
        names.push_back(rest.substr(0, length));
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    const bool isService = key.root == HKEY_LOCAL_MACHINE && names.size() == 4 && IsSameName(names[0], "SYSTEM") &&
                           (IsSameName(names[1], "CurrentControlSet") ||
                            IsSameName(names[1].substr(0, numberedSet.size()), numberedSet)) &&
                           IsSameName(names[2], "Services");
    return isService ? names[3] : std::string_view();
}

RegValue *Find(RegKey &key, std::string_view name) {
    const auto found = std::find_if(key.values.begin(), key.values.end(), [&](const RegValue &value) {
        return !value.isDeleted && IsSameName(value.name, name);
    });
    return found != key.values.end() ? &*found : nullptr;
}

void Remove(RegKey &key, std::string_view name) {
    std::erase_if(key.values, [&](const RegValue &value) { return IsSameName(value.name, name); });
}

void Put(RegKey &key, const std::string &name, std::uint32_t type, const std::vector<std::string> &words) {
    Remove(key, name);
    RegValue value;
    value.name = name;
    value.type = type;
    value.data = ParseData(type, words).value_or("");
    key.values.push_back(std::move(value));
}

// The Unix user for the account of a Win32 service; empty for the daemon's own.
std::string UserOf(const std::string &account) {
    const std::string name = account.substr(account.rfind('\\') + 1); // npos + 1 is 0
    if (IsSameName(name, "LocalSystem") || IsSameName(name, "SYSTEM")) return "";
    return IsSameName(name, "LocalService") || IsSameName(name, "NetworkService") ? "nobody" : name;
}

void FixDependencies(RegKey &key, std::string_view service, std::vector<std::string> *remarks) {
    const RegValue *services = Find(key, "DependOnService");
    if (services == nullptr || services->type != REG_MULTI_SZ) return;
    std::vector<std::string> dependencies = SplitMultiString(services->data);
    const RegValue *groups = Find(key, "DependOnGroup");
    for (const std::string &group : SplitMultiString(groups != nullptr ? groups->data : "")) {
        dependencies.push_back(group.front() == '+' ? group : "+" + group);
    }
    Remove(key, "DependOnService");
    if (!dependencies.empty()) Put(key, "DependOnGroup", REG_MULTI_SZ, dependencies);
    remarks->push_back(fmt::format("~ {}: DependOnService, several strings -> DependOnGroup \"{}\"", service,
                                   fmt::join(dependencies, "\", \"")));
}

void FixAccount(RegKey &key, std::string_view service, std::vector<std::string> *remarks) {
    const RegValue *object = Find(key, "ObjectName");
    if (object == nullptr || object->type != REG_SZ) return;
    const std::string account = object->data.c_str();
    const std::string user = UserOf(account);
    Remove(key, "ObjectName");
    if (!user.empty()) Put(key, "DependOnService", REG_SZ, {user});
    remarks->push_back(fmt::format("~ {}: ObjectName \"{}\" -> {}", service, account,
                                   user.empty() ? "the daemon's own user"
                                                : fmt::format("the Unix user {}, in DependOnService", user)));
}

void LookAtTheRest(RegKey &key, std::string_view service, std::vector<std::string> *remarks) {
    const RegValue *image = Find(key, "ImagePath");
    if (image != nullptr && image->data.find_first_of("\\%") != std::string::npos) {
        remarks->push_back(fmt::format("! {}: ImagePath \"{}\" is no csh script", service, image->data.c_str()));
    }
    for (const char *required : {"Type", "DisplayName"}) {
        if (Find(key, required) != nullptr) continue;
        remarks->push_back(fmt::format("! {}: no {} here; unless the registry has one, the daemon loads no service",
                                       service, required));
    }
}

} // namespace

std::vector<std::string> FixServices(std::vector<RegKey> *keys) {
    std::vector<std::string> remarks;
    for (RegKey &key : *keys) {
        const std::string_view service = ServiceOf(key.key);
        if (service.empty() || key.isDeleted) continue;
        FixDependencies(key, service, &remarks);
        FixAccount(key, service, &remarks);
        LookAtTheRest(key, service, &remarks);
    }
    return remarks;
}
