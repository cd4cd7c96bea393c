// SPDX-License-Identifier: MIT
// pid_file: a hint for people and tools, because the daemon tells nobody a process id.
//
// The file is NAME.pid under /run/tv/services, or under $XDG_RUNTIME_DIR/tv/services where the first cannot be written.
// It holds the process id and a newline. It is a hint only: it may be missing, or left over from a killed process.
#pragma once

#include <sys/types.h>

#include <string>

// Writes the hint for this process. Returns the file's path; empty when it could not be written.
[[nodiscard]] std::string WritePidFile(const std::string &serviceName);

struct PidHint {
    pid_t pid = 0; // 0 when there is no hint
    bool alive = false;
    time_t writtenAt = 0; // seconds since the epoch
};

// The hint of a service.
[[nodiscard]] PidHint ReadPidHint(const std::string &serviceName);

// The process id in the hint of a service, if that process lives; 0 otherwise.
[[nodiscard]] pid_t ReadPidFile(const std::string &serviceName);
