// SPDX-License-Identifier: MIT
// pid_file: a hint for people and tools, because the daemon tells nobody a process id.
//
// The file is NAME.pid (runtime_file.h). It holds the process id, a blank and the moment of the process's start as
// /proc/PID/stat tells it, " stopped" once the service has told its end, and a newline, or nothing. It is a hint only:
// it may be missing, or left over from a killed process; the moment tells that one from another process that has got
// its number since.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

// Makes the file of a service that will run under this account, empty, or makes it anew where it is another user's.
// Returns 0, also where there is nothing to do, because the account is empty or root's; EPERM for anybody but root,
// EINVAL for a name that cannot be a file's, ENOENT for an unknown account, or the errno of what failed.
[[nodiscard]] int PreparePidFile(const std::string &serviceName, const std::string &account);

// Writes the hint for this process. Returns the file's path; empty when it could not be written.
[[nodiscard]] std::string WritePidFile(const std::string &serviceName);

// Takes the hint away where it is still the one of this process; the file stays, and is empty, where it is not ours to
// remove.
void RemovePidFile(const std::string &serviceName);

// Notes in the hint of this process that the service is stopped, whatever the process does from now on. The hint of
// another process stays as it is.
void MarkPidFileStopped(const std::string &serviceName);

// The process, other than this one, that was started for the service, lives and has not told the service's end; 0 for
// none.
[[nodiscard]] pid_t FindOtherRun(const std::string &serviceName);

struct PidHint {
    pid_t pid = 0;                // 0 when there is no hint
    std::uint64_t startTicks = 0; // of its start (process_stat.h); 0: not told
    bool alive = false;
    bool stopped = false;       // it has told the service's end
    std::int64_t writtenAt = 0; // seconds since the epoch
};

// The hint of a service.
[[nodiscard]] PidHint ReadPidHint(const std::string &serviceName);

// The process id in the hint of a service, if that process lives; 0 otherwise.
[[nodiscard]] pid_t ReadPidFile(const std::string &serviceName);
