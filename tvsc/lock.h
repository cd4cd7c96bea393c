// SPDX-License-Identifier: MIT
// lock: the commands around the database lock. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

#include <optional>

int RunLockStatus(Session &session);
int RunLockRelease(Session &session, std::optional<DWORD> id);
// Holds it while a command runs, whose exit status it is then, or without one until the program is interrupted.
//   action  as results name it
int RunLockTake(Session &session, const std::string &action, const std::vector<std::string> &command);
