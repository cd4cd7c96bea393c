// SPDX-License-Identifier: MIT
// leftovers: service processes of a daemon that has ended. It leaves them running; the next one does not know them and
// starts each anew.
#pragma once

#include "tvsc/session.h"

#include <sys/types.h>

// Whether a process is a service daemon, by its name.
[[nodiscard]] bool IsServiceDaemon(pid_t process);

struct RegisteredService {
    pid_t process = 0;
    bool isAlive = false;
    bool isLeftOver = false; // alive, and no child of a service daemon
    std::string owner;       // of its entry, as the port mapper tells
};

// The service processes that are registered at this machine's port mapper. Returns false when it does not answer.
[[nodiscard]] bool ListRegisteredServices(std::vector<RegisteredService> *services);

// Lists those that are left over, or ends them: SIGTERM, and SIGKILL after the time-out. Returns the exit status.
int RunLeftovers(const Options &options, bool end);
