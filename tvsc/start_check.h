// SPDX-License-Identifier: MIT
// start_check: services that this program does not start.
//
// The daemon starts disabled services like any other: keeping them from it is the client's work. The start of a masked
// one would fail, with a code that does not say why.
#pragma once

#include "tvsc/session.h"

// Whether a service is masked, or disabled and nothing forces it; then that was noted.
//   action  start or restart
[[nodiscard]] bool IsKeptFromStarting(Session &session, SC_HANDLE service, const std::string &name, const char *action,
                                      bool force);
