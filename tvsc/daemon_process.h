// SPDX-License-Identifier: MIT
// daemon_process: the service daemons of this machine as processes, as /proc shows them.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

struct ProcessAndParent {
    pid_t process;
    pid_t parent;
};

// All that have not ended; none without /proc.
[[nodiscard]] std::vector<ProcessAndParent> ReadProcesses();

// The daemons among them. A fork of one that has not become its program yet is none.
[[nodiscard]] std::vector<pid_t> ServiceDaemonsAmong(const std::vector<ProcessAndParent> &processes);

struct DaemonProcess {
    pid_t process;
    std::int64_t uptimeMs;
};

// The daemon that answers on this machine. Nothing where none is to be seen that has its port; where this user may not
// look who has it, a lone one is believed, and of several none.
[[nodiscard]] std::optional<DaemonProcess> FindAnsweringDaemon();
