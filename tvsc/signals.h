// SPDX-License-Identifier: MIT
// signals: signals to the programs of services. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

// To the program itself, of a service that tvhost runs not to tvhost.
int RunKill(Session &session, const std::string &signal, const std::vector<std::string> &names);
// Has them read their configuration again: the control that tvhost takes for it, else SIGHUP.
int RunReload(Session &session, const std::vector<std::string> &names);
