// SPDX-License-Identifier: MIT
// drain: services that were deleted and do not go. Returns the exit status.
#pragma once

#include "tvsc/session.h"

int RunHandlesDrain(Session &session, const std::vector<std::string> &names);
