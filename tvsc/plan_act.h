// SPDX-License-Identifier: MIT
// plan_act: what start, stop and restart would do, without doing it. Returns the exit status.
#pragma once

#include "tvsc/session.h"

enum class PlannedAct { start, stop, restart };

struct ActPlanOptions {
    std::vector<std::string> names;
    bool withOthers = true; // what a start needs, or what needs that which is stopped
    bool force = false;     // as of the command
    bool all = false;       // in whatever order, where dependents cannot be listed
};
// Refuses what the command itself would refuse.
int RunPlanAct(Session &session, PlannedAct act, const ActPlanOptions &options);

// Whether the daemon would hand a stop on to a service that is not stopped yet. Why not was noted.
[[nodiscard]] bool WouldStop(Session &session, const std::string &name);
