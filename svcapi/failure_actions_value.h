// SPDX-License-Identifier: MIT
// failure_actions_value: the registry value "FailureActions" of a service's key, written and read.
//
// It is five 32-bit words, the lower byte first: reset period in seconds, two unused (the places of texts), number of
// actions, offset of the first; then two words an action, which are its type and its delay in milliseconds.
#pragma once

#include "tv/winsvc.h"

#include <string>
#include <vector>

constexpr DWORD mostFailureActions = 1024;

struct FailureActionsValue {
    DWORD resetPeriodSec = 0;
    std::vector<SC_ACTION> actions; // at most mostFailureActions, of the known types
};

[[nodiscard]] std::string PackFailureActions(const FailureActionsValue &value);
// False for bytes that are none; *value is as it was then.
[[nodiscard]] bool UnpackFailureActions(const std::string &bytes, FailureActionsValue *value);
