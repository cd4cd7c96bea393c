// SPDX-License-Identifier: MIT
// failure_actions: reading the values.
#include "tvhost/failure_actions.h"

#include "registry/key.h"
#include "servd/service_keys.h"
#include "svcapi/failure_actions_value.h"
#include "tvhost/named_value.h"

#include <cstring>

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
    rc = ReadNamedValue(key, "FailureActions", REG_BINARY, &bytes, problem);
    if (rc == ERROR_SUCCESS && !bytes.empty() && !ParseFailureActions(bytes, actions)) {
        *problem = "FailureActions: " + std::to_string(bytes.size()) + " bytes are none";
        return ERROR_INVALID_DATA;
    }
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    rc = ReadNamedValue(key, "FailureCommand", REG_SZ, &command, problem);
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc == ERROR_SUCCESS) actions->command.assign(command, 0, strnlen(command.data(), command.size()));
    return rc;
}
