// SPDX-License-Identifier: MIT
// fix_services: what is changed in a key, one value after the other.
#include "tvreg/fix_services.h"

#include "servd/service_keys.h"
#include "tvreg/value_text.h"
#include "util/ktl_strings.h"
#include "util/string_list.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

// What the values are called in a registry from elsewhere. There, each holds what it is named for.
constexpr char servicesElsewhere[] = "DependOnService"; // several strings
constexpr char groupsElsewhere[] = "DependOnGroup";
constexpr char accountElsewhere[] = "ObjectName";

bool IsSameName(std::string_view a, std::string_view b) {
    return _ktl_strcasecmp(std::string(a).c_str(), std::string(b).c_str()) == 0;
}

std::vector<std::string_view> NamesOf(std::string_view path) {
    std::vector<std::string_view> names;
    while (!path.empty()) {
        const std::size_t length = std::min(path.find('\\'), path.size());
        names.push_back(path.substr(0, length));
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return names;
}

// Beside the current set of a kind stand numbered ones: CurrentControlSet, ControlSet001.
bool IsNumberedSet(std::string_view name, std::string_view currentSet) {
    constexpr std::string_view current = "Current";
    if (!currentSet.starts_with(current)) return false;
    const std::string_view set = currentSet.substr(current.size());
    return IsSameName(name.substr(0, set.size()), set);
}

// The name of the service whose key this is; empty for any other key.
std::string_view ServiceOf(const KeyPath &key) {
    const std::vector<std::string_view> names = NamesOf(key.path), upper = NamesOf(servicesKeyPath);
    const auto stands = [](std::string_view meant, std::string_view name) {
        return IsSameName(name, meant) || IsNumberedSet(name, meant);
    };
    const bool isService = key.root == HKEY_LOCAL_MACHINE && names.size() == upper.size() + 1 &&
                           std::equal(upper.begin(), upper.end(), names.begin(), stands);
    return isService ? names.back() : std::string_view();
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
    const RegValue *services = Find(key, servicesElsewhere);
    if (services == nullptr || services->type != REG_MULTI_SZ) return;
    std::vector<std::string> dependencies = SplitMultiString(services->data);
    const RegValue *groups = Find(key, groupsElsewhere);
    for (const std::string &group : SplitMultiString(groups != nullptr ? groups->data : "")) {
        dependencies.push_back(group.front() == '+' ? group : "+" + group);
    }
    Remove(key, servicesElsewhere);
    if (!dependencies.empty()) Put(key, dependenciesValue, REG_MULTI_SZ, dependencies);
    remarks->push_back(fmt::format("~ {}: {}, several strings -> {} \"{}\"", service, servicesElsewhere,
                                   dependenciesValue, fmt::join(dependencies, "\", \"")));
}

void FixAccount(RegKey &key, std::string_view service, std::vector<std::string> *remarks) {
    const RegValue *object = Find(key, accountElsewhere);
    if (object == nullptr || object->type != REG_SZ) return;
    const std::string account = object->data.c_str();
    const std::string user = UserOf(account);
    Remove(key, accountElsewhere);
    if (!user.empty()) Put(key, accountValue, REG_SZ, {user});
    remarks->push_back(fmt::format("~ {}: {} \"{}\" -> {}", service, accountElsewhere, account,
                                   user.empty() ? "the daemon's own user"
                                                : fmt::format("the Unix user {}, in {}", user, accountValue)));
}

void LookAtTheRest(RegKey &key, std::string_view service, std::vector<std::string> *remarks) {
    const RegValue *image = Find(key, imagePathValue);
    if (image != nullptr && image->data.find_first_of("\\%") != std::string::npos) {
        remarks->push_back(
            fmt::format("! {}: {} \"{}\" is no csh script", service, imagePathValue, image->data.c_str()));
    }
    for (const char *required : {typeValue, displayNameValue}) {
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
