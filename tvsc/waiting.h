// SPDX-License-Identifier: MIT
// waiting: watching a service until it is where it should be.
#pragma once

#include "tvsc/session.h"

// From now on each state on the way is told on stderr.
void TellWaits();

// died: the daemon has not noticed yet, but the process that the service's hint names is gone.
enum class WaitEnd { reached, stopped, died, timedOut, unreachable };

// Waits until the service is in the wanted state, which is shown at a terminal meanwhile. Looks with
// QueryServiceStatus, which has the daemon find a dead service where an announced wait has passed, and does not touch
// it otherwise. With stoppedIsEnd a stopped service is not expected to start any more.
[[nodiscard]] WaitEnd WaitForState(Session &session, SC_HANDLE service, const std::string &name, DWORD wanted,
                                   bool stoppedIsEnd, SERVICE_STATUS *last);
