// SPDX-License-Identifier: MIT
// config2: the parts of a service's configuration that the daemon does not know, as values of its registry key.
//
// Each part is a value of its own under the name that it has on other systems:
//   Description                       REG_SZ
//   FailureActions                    REG_BINARY   failure_actions_value.h
//   RebootMessage, FailureCommand     REG_SZ       of the failure actions
//   FailureActionsOnNonCrashFailures  REG_DWORD    0 or 1
//   DelayedAutostart                  REG_DWORD    0 or 1
//   ServiceSidType                    REG_DWORD
//   RequiredPrivileges                REG_MULTI_SZ
//   PreshutdownTimeout                REG_DWORD    milliseconds
#pragma once

#include "svcapi/failure_actions_value.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <string>
#include <vector>

struct KeptFailureActions {
    FailureActionsValue value;
    std::string rebootMessage;
    std::string command;
};

// Read a part of a service whose key is open; what is not there leaves the argument as it is. Return 0, 13
// ERROR_INVALID_DATA for a value of another kind, or a code of the registry.
[[nodiscard]] DWORD ReadDescription(HKEY service, std::string *description);
[[nodiscard]] DWORD ReadFailureActions(HKEY service, KeptFailureActions *actions);
[[nodiscard]] DWORD ReadFailureActionsFlag(HKEY service, DWORD *alsoWithoutCrash);
[[nodiscard]] DWORD ReadRequiredPrivileges(HKEY service, std::vector<std::string> *privileges);
