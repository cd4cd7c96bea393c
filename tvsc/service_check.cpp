// SPDX-License-Identifier: MIT
// service_check: the values that the daemon reads, and the parameters of tvhost.
#include "tvsc/service_check.h"

#include "servd/limits.h"
#include "servd/service_keys.h"
#include "svcapi/image_launcher.h"
#include "tvhost/parameters.h"
#include "tvreg/value_text.h"
#include "tvsc/foresight.h"
#include "tvsc/hosted_settings.h"
#include "tvsc/mask.h"
#include "util/little_endian.h"
#include "util/names.h"
#include "util/string_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace {

// Whether the service has the value already, as it is.
bool HasSame(const ServiceText &before, const RegValue &value) {
    const RegValue *present = FindValue(before, value.name);
    return present != nullptr && present->type == value.type && present->data == value.data;
}

DWORD CheckName(const std::string &name, std::string *problem) {
    *problem = fmt::format("a name has no slash and no backslash in it, and 1 to {} bytes", longestTextBytes);
    const bool isName = !name.empty() && name.size() <= longestTextBytes && name.find_first_of("/\\") == name.npos;
    return isName ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_INVALID_NAME};
}

constexpr const char *numbersOfDaemon[] = {typeValue, startTypeValue, errorControlValue, tagValue};
constexpr const char *textsOfDaemon[] = {displayNameValue, imagePathValue, groupValue, accountValue};

bool IsAmong(const std::string &name, const auto &names) {
    return std::any_of(std::begin(names), std::end(names), [&](const char *one) { return AreNamesEqual(name, one); });
}

// One value of the service's own key.
DWORD CheckValue(const RegValue &value, std::string *problem) {
    const bool isNumber = value.type == REG_DWORD && value.data.size() == dwordBytes;
    *problem = fmt::format("{}: the mark of a deletion that is due, which is the daemon's to set", deleteFlagValue);
    if (AreNamesEqual(value.name, deleteFlagValue)) return ERROR_INVALID_PARAMETER;
    *problem = fmt::format("{}: not a REG_DWORD", value.name);
    if (IsAmong(value.name, numbersOfDaemon)) return isNumber ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    *problem = fmt::format("{}: not a REG_MULTI_SZ", value.name);
    if (AreNamesEqual(value.name, dependenciesValue)) {
        return value.type == REG_MULTI_SZ ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    }
    if (!IsAmong(value.name, textsOfDaemon)) return ERROR_SUCCESS;
    *problem = fmt::format("{}: not a REG_SZ", value.name);
    if (value.type != REG_SZ) return ERROR_INVALID_DATA;
    *problem = fmt::format("{}: more than {} bytes", value.name, longestTextBytes);
    return value.data.size() <= longestTextBytes + 1 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD CheckStartType(const ServiceText &after, std::string *problem) {
    const RegValue *start = FindValue(after, startTypeValue);
    *problem = "start: none of boot, system, auto, demand, disabled";
    const bool isNumber = start != nullptr && start->data.size() == dwordBytes;
    return isNumber && DwordAt(start->data.data()) > SERVICE_DISABLED ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

DWORD CheckImage(const Options &options, const ServiceText &before, const ServiceText &after, std::string *problem) {
    const RegValue *image = FindValue(after, imagePathValue);
    *problem = "has no image_path";
    if (image == nullptr) return before.tree.keys.empty() ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    if (!IsThisMachine(options) || HasSame(before, *image)) return ERROR_SUCCESS;
    const std::string path = image->data.c_str(), why = WhyNoLauncher(path);
    *problem = fmt::format("{}: {}", path, why);
    return why.empty() ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

DWORD CheckAccount(const Options &options, const ServiceText &before, const ServiceText &after, std::string *problem) {
    const RegValue *account = FindValue(after, accountValue);
    if (account == nullptr || !IsThisMachine(options) || HasSame(before, *account)) return ERROR_SUCCESS;
    const std::string name = WithoutMask(account->data.c_str());
    *problem = fmt::format("there is no account {}", name);
    return IsAccount(name) ? ERROR_SUCCESS : ERROR_INVALID_SERVICE_ACCOUNT;
}

// What a person would write for a parameter's value: a list has one for each of its strings.
std::vector<std::string> SettingsOf(const RegValue &value, bool isSigned) {
    if (value.type == REG_MULTI_SZ) return SplitMultiString(value.data);
    if (value.type != REG_DWORD || value.data.size() != dwordBytes) return {value.data.c_str()};
    const std::uint32_t number = DwordAt(value.data.data());
    return {isSigned ? std::to_string(static_cast<std::int32_t>(number)) : std::to_string(number)};
}

DWORD CheckSettings(const RegValue &value, bool isSigned, std::string *problem) {
    HostParameters parameters;
    for (const std::string &setting : SettingsOf(value, isSigned)) {
        const DWORD rc = SetHostParameter(value.name + '=' + setting, &parameters, problem);
        if (rc == ERROR_FILE_NOT_FOUND) return ERROR_INVALID_PARAMETER; // no such parameter
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

// One parameter of tvhost. A number's bits may mean one below zero.
DWORD CheckParameter(const RegValue &value, std::string *problem) {
    const DWORD rc = CheckSettings(value, false, problem);
    std::string ignored;
    return rc == ERROR_SUCCESS ? rc : CheckSettings(value, true, &ignored) == ERROR_SUCCESS ? ERROR_SUCCESS : rc;
}

DWORD CheckParameters(const ServiceText &before, const ServiceText &after, std::string *problem) {
    const RegValue *image = FindValue(after, imagePathValue);
    if (image == nullptr || !IsTvhostImage(image->data.c_str())) return ERROR_SUCCESS;
    for (const Difference &difference : CompareTrees(before.tree, after.tree)) {
        if (!difference.after || !AreNamesEqual(difference.path, parametersKey)) continue;
        const DWORD rc = CheckParameter(*difference.after, problem);
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

} // namespace

DWORD CheckService(const Options &options, const ServiceText &before, const ServiceText &after, std::string *problem) {
    DWORD rc = CheckName(after.name, problem);
    if (rc != ERROR_SUCCESS) return rc;
    for (const RegValue &value : after.tree.keys.front().values) {
        rc = CheckValue(value, problem);
        if (rc != ERROR_SUCCESS && !HasSame(before, value)) return rc;
    }
    for (const auto &check : {CheckImage, CheckAccount}) {
        rc = check(options, before, after, problem);
        if (rc != ERROR_SUCCESS) return rc;
    }
    rc = CheckStartType(after, problem);
    return rc == ERROR_SUCCESS ? CheckParameters(before, after, problem) : rc;
}
