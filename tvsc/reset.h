// SPDX-License-Identifier: MIT
// reset: services that the daemon has as active and that are not there any more.
#pragma once

#include "tvsc/session.h"

struct ResetOptions {
    std::vector<std::string> names;
    bool kill = false; // end what is left of them, too
    bool yes = false;  // and not only tell them
};

// Has the daemon forget them: stopped, with 1067. Returns the exit status.
int RunReset(Session &session, const ResetOptions &reset);
