// SPDX-License-Identifier: MIT
// seeds: the key of the event sources.
#include "tvregd/seeds.h"

#include "servd/service_keys.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"
#include "util/little_endian.h"
#include "util/names.h"

namespace {

constexpr std::string_view eventLogName = "EventLog";

// Whether a key stands at this path below HKEY_LOCAL_MACHINE. Only the key's way up is looked at: it may not hang in
// the tree yet.
bool IsAt(const Key &key, std::string_view path) {
    const Key *at = &key;
    for (;;) {
        const std::size_t slash = path.rfind('\\');
        if (at->parent == nullptr || !AreNamesEqual(at->name, path.substr(slash + 1))) return false; // npos + 1 is 0
        at = at->parent;
        if (slash == std::string_view::npos) return HandleOf(*at) == HKEY_LOCAL_MACHINE;
        path.remove_suffix(path.size() - slash);
    }
}

Value NumberValue(const char *name, DWORD number) {
    Value value{name, REG_DWORD, std::string(dwordBytes, '\0')};
    PutDword(number, value.data.data());
    return value;
}

} // namespace

std::vector<Value> MissingSeeds(const Key &key) {
    if (!AreNamesEqual(key.name, eventLogName) || key.parent == nullptr || !IsAt(*key.parent, servicesKeyPath)) {
        return {};
    }
    std::vector<Value> missing;
    for (Value value : {NumberValue(typeValue, SERVICE_ADAPTER), NumberValue(startTypeValue, SERVICE_DISABLED),
                        NumberValue(errorControlValue, SERVICE_ERROR_IGNORE),
                        Value{displayNameValue, REG_SZ, std::string(eventLogName) + '\0'}}) {
        if (FindValue(key, value.name) == nullptr) missing.push_back(std::move(value));
    }
    return missing;
}

std::string SeededKeyPath() { return std::string(servicesKeyPath) + '\\' + std::string(eventLogName); }
