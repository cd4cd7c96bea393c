// SPDX-License-Identifier: MIT
// failure_actions: reading the values.
#include "tvhost/failure_actions.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "servd/service_keys.h"
#include "util/little_endian.h"

#include <cstring>

namespace {

constexpr std::size_t headerWords = 5;
constexpr std::size_t mostActions = 1024;

std::uint32_t WordAt(const std::string &bytes, std::size_t index) { return DwordAt(bytes.data() + index * dwordBytes); }

// A value of the service's key. Returns 0 also where it is missing: then *data is empty.
DWORD ReadKeyValue(HKEY key, const char *name, DWORD wantedType, std::string *data, std::string *problem) {
    DWORD type = wantedType;
    auto rc = static_cast<DWORD>(ReadValueData(key, name, &type, data));
    if (rc == ERROR_FILE_NOT_FOUND) data->clear();
    if (rc == ERROR_SUCCESS && type != wantedType) rc = ERROR_INVALID_DATA;
    *problem = std::string(name) + ": has the wrong type or cannot be read";
    return rc == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_SUCCESS} : rc;
}

} // namespace

bool ParseFailureActions(const std::string &bytes, FailureActions *actions) {
    if (bytes.size() < headerWords * dwordBytes) return false;
    const std::size_t count = WordAt(bytes, 3);
    if (count > mostActions || bytes.size() < (headerWords + 2 * count) * dwordBytes) return false;
    actions->resetSec = WordAt(bytes, 0);
    actions->actions.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t kind = WordAt(bytes, headerWords + 2 * i);
        if (kind > static_cast<std::uint32_t>(FailureActionKind::runCommand)) return false;
        actions->actions.push_back({static_cast<FailureActionKind>(kind), WordAt(bytes, headerWords + 2 * i + 1)});
    }
    return true;
}

DWORD ReadFailureActions(const std::string &serviceName, FailureActions *actions, std::string *problem) {
    HKEY key = 0;
    const std::string path = std::string(servicesKeyPath) + "\\" + serviceName;
    auto rc = static_cast<DWORD>(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_ALL_ACCESS, &key));
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closed(&key);
    std::string bytes, command;
    rc = ReadKeyValue(key, "FailureActions", REG_BINARY, &bytes, problem);
    if (rc == ERROR_SUCCESS && !bytes.empty() && !ParseFailureActions(bytes, actions)) {
        *problem = "FailureActions: " + std::to_string(bytes.size()) + " bytes are none";
        return ERROR_INVALID_DATA;
    }
    if (rc == ERROR_SUCCESS) rc = ReadKeyValue(key, "FailureCommand", REG_SZ, &command, problem);
    if (rc == ERROR_SUCCESS) actions->command.assign(command, 0, strnlen(command.data(), command.size()));
    return rc;
}
