// SPDX-License-Identifier: MIT
// lock: the commands around the database lock. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

#include <optional>

int RunLockStatus(Session &session);
int RunLockRelease(Session &session, std::optional<DWORD> id);
int RunWithLock(Session &session, const std::vector<std::string> &command);
