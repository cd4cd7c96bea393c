// SPDX-License-Identifier: MIT
// limits: what a program may take, and what it sees of the machine.
//
// Everything is worked out before the fork; the child makes system calls only. What cannot be had fails the start, and
// is named.
#pragma once

#include "tvhost/parameters.h"

#include <sys/types.h>

#include <optional>

struct Limits {
    std::optional<DWORD> openFiles, coreBytes, umask; // unlimited: no limit
    std::optional<int> nice;
    std::string oomScore;      // as /proc takes it; empty: as it is
    std::vector<gid_t> groups; // all of them; empty: as they are
    bool privateTmp = false;
    bool noNewPrivileges = false;
};

// Works them out. Returns which parameter cannot be had and why, empty when all can be tried.
[[nodiscard]] std::string PlanLimits(const HostParameters &parameters, Limits *limits);

// In the child: sets them. Returns the parameter that failed, with errno; null when none did. Those that take rights
// away come with BarProgram, right before the program.
//   mounts  path of a mount namespace whose /tmp is the private one; null where one is to be made
[[nodiscard]] const char *SetLimits(const Limits &limits, const char *mounts);
[[nodiscard]] const char *BarProgram(const Limits &limits);
