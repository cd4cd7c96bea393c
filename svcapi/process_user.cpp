// SPDX-License-Identifier: MIT
// process_user: reads /proc/PID/status. The owner of /proc/PID itself is root for processes that may not be traced.
#include "svcapi/process_user.h"

#include "util/guard.h"

#include <cstdio>
#include <string>

using File = std::unique_ptr<FILE, Calls<&std::fclose>>;

bool FindUserOf(pid_t process, uid_t *user) {
    const File status(std::fopen(("/proc/" + std::to_string(process) + "/status").c_str(), "re"));
    if (status == nullptr) return false;
    char line[256];
    while (std::fgets(line, sizeof line, status.get()) != nullptr) {
        if (std::sscanf(line, "Uid: %*u %u", user) == 1) return true;
    }
    return false;
}
