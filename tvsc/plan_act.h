// SPDX-License-Identifier: MIT
// plan_act: what start, stop and restart would do, without doing it. Returns the exit status.
#pragma once

#include "tvsc/session.h"

enum class PlannedAct { start, stop, restart };

// With all that the services need, and all that needs them.
int RunPlanAct(Session &session, PlannedAct act, const std::vector<std::string> &names);
