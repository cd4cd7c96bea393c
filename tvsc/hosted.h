// SPDX-License-Identifier: MIT
// hosted: what there is to tell of a service that tvhost runs, beside what the daemon knows.
#pragma once

#include "tvhost/process_tree.h"
#include "tvhost/state_file.h"

#include <optional>
#include <vector>

struct HostedView {
    HostState state;
    bool hostLives = false;
    bool programLives = false;
    TreeUsage usage; // of a living tree
    std::vector<std::string> lastLines;
};

// Reads it; nothing where tvhost has left nothing.
[[nodiscard]] std::optional<HostedView> ReadHosted(const std::string &name);

// Lines for people, without indent; the process that the service is comes first.
//   failed  whether the daemon has the service as one that ended with an error code
[[nodiscard]] std::vector<std::string> HostedLines(const HostedView &view, bool failed);
