// SPDX-License-Identifier: MIT
// watch: services as they change, until interrupted.
#pragma once

#include "tvsc/service_view.h"

struct WatchOptions {
    std::vector<std::string> patterns; // none: all services
    double intervalSec = 1;
    std::optional<unsigned> looks; // end after so many
    bool beginsWithAll = false;    // lines: one for each service as it stands, before those for changes
};

// On a terminal a table that is drawn anew at each look, else a line for each change; with JSON always lines. Each look
// is one enumeration: no service is asked, and the daemon declares none dead. Returns the exit status.
int RunWatch(Session &session, const WatchOptions &watch);
