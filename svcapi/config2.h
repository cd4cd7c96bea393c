// SPDX-License-Identifier: MIT
// config2: the parts of a service's configuration that the daemon does not know, as values of its registry key.
//
// Each part is a value of its own under the name that it has on other systems.
#pragma once

#include "svcapi/failure_actions_value.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <string>
#include <vector>

inline constexpr char descriptionName[] = "Description";       // REG_SZ
inline constexpr char failureActionsName[] = "FailureActions"; // REG_BINARY, failure_actions_value.h
inline constexpr char rebootMessageName[] = "RebootMessage";   // REG_SZ, of the failure actions
inline constexpr char failureCommandName[] = "FailureCommand"; // likewise
inline constexpr char failureActionsFlagName[] = "FailureActionsOnNonCrashFailures"; // REG_DWORD, 0 or 1
inline constexpr char delayedAutoStartName[] = "DelayedAutostart";                   // REG_DWORD, 0 or 1
inline constexpr char sidTypeName[] = "ServiceSidType";                              // REG_DWORD
inline constexpr char requiredPrivilegesName[] = "RequiredPrivileges";               // REG_MULTI_SZ
inline constexpr char preshutdownTimeoutName[] = "PreshutdownTimeout";               // REG_DWORD, milliseconds

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
