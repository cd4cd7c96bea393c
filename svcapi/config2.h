// SPDX-License-Identifier: MIT
// config2: the parts of a service's configuration that the daemon does not know, as values of its registry key.
//
// Each part is a value of its own under the name that it has on other systems:
//   Description                       REG_SZ
//   FailureActions                    REG_BINARY   five 32-bit words, the lower byte first: reset period in seconds,
//   two
//                                                  unused, number of actions, offset of the first (20); then a type and
//                                                  a delay in milliseconds for each action
//   RebootMessage, FailureCommand     REG_SZ       of the failure actions
//   FailureActionsOnNonCrashFailures  REG_DWORD    0 or 1
//   DelayedAutostart                  REG_DWORD    0 or 1
//   ServiceSidType                    REG_DWORD
//   RequiredPrivileges                REG_MULTI_SZ
//   PreshutdownTimeout                REG_DWORD    milliseconds
#pragma once

#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <string>
#include <vector>

struct FailureActions {
    DWORD resetPeriodSec = 0;
    std::string rebootMessage;
    std::string command;
    std::vector<SC_ACTION> actions;
};

// Read a part of a service whose key is open; what is not there leaves the argument as it is. Return 0, 13
// ERROR_INVALID_DATA for a value of another kind, or a code of the registry.
[[nodiscard]] DWORD ReadDescription(HKEY service, std::string *description);
[[nodiscard]] DWORD ReadFailureActions(HKEY service, FailureActions *actions);
[[nodiscard]] DWORD ReadFailureActionsFlag(HKEY service, DWORD *alsoWithoutCrash);
[[nodiscard]] DWORD ReadRequiredPrivileges(HKEY service, std::vector<std::string> *privileges);
