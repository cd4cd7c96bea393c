// SPDX-License-Identifier: MIT
// status: what a service has reported, the time by which it must report again, and its being declared dead.
#pragma once

#include "servd/servd_svc_proc/database.h"

#include "util/wall_time.h"

// Whether a service's announced wait has passed: its wait hint is not 0 and `now` is later than its deadline.
[[nodiscard]] bool HasDeadlinePassed(const ServiceDatabaseEntry &entry, const WallTime &now);
// The deadline that a report with this wait hint (milliseconds) sets. Deliberate: the hint's part below one second is
// added to the microseconds as it is.
[[nodiscard]] StatusDeadline DeadlineAfter(const WallTime &now, std::int32_t waitHintMs);
// Whether it has passed by now.
[[nodiscard]] bool HasDeadlinePassedNow(const ServiceDatabaseEntry &entry);

// Declares a service dead: stopped with 1067. Sends no signal.
void ServiceFailed(std::int32_t index);
