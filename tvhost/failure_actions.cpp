// SPDX-License-Identifier: MIT
// failure_actions: reading the values.
#include "tvhost/failure_actions.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "servd/service_keys.h"
#include "svcapi/failure_actions_value.h"

#include <cstring>

namespace {

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
    FailureActionsValue value;
    if (!UnpackFailureActions(bytes, &value)) return false;
    actions->resetSec = value.resetPeriodSec;
    actions->actions.clear();
    for (const SC_ACTION &action : value.actions) {
        actions->actions.push_back({static_cast<FailureActionKind>(action.Type), action.Delay});
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
