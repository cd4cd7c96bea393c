// SPDX-License-Identifier: MIT
// failure_actions: what the key of a service says is to be done when it fails.
#pragma once

#include "tvhost/parameters.h"

// Numbered as SC_ACTION_TYPE.
enum class FailureActionKind : unsigned { none, restart, reboot, runCommand };

struct FailureAction {
    FailureActionKind kind = FailureActionKind::none;
    DWORD delayMs = 0;
};

// The values "FailureActions" and "FailureCommand" of a service's key.
struct FailureActions {
    std::vector<FailureAction> actions;
    DWORD resetSec = unlimited; // unlimited: never
    std::string command;
};

// Reads "FailureActions" as ChangeServiceConfig2 writes it. Returns false for bytes that are none.
[[nodiscard]] bool ParseFailureActions(const std::string &bytes, FailureActions *actions);

// Reads them. Returns 0, also where there are none; 13 and a text, or a code of the registry and a text.
[[nodiscard]] DWORD ReadFailureActions(const std::string &serviceName, FailureActions *actions, std::string *problem);
