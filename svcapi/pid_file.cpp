// SPDX-License-Identifier: MIT
// pid_file: writing and reading the process id hints.
#include "svcapi/pid_file.h"

#include "svcapi/process_stat.h"
#include "svcapi/runtime_file.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>

namespace {

constexpr char suffix[] = ".pid";
constexpr std::size_t longestText = 64;

PidHint HintOf(const RuntimeFile &file) {
    PidHint hint;
    hint.writtenAt = file.writtenAt;
    std::uint64_t start = 0;
    if (std::sscanf(file.text.c_str(), "%d %" SCNu64, &hint.pid, &start) < 1 || hint.pid <= 0) return {};
    const bool exists = kill(hint.pid, 0) == 0 || errno == EPERM;
    hint.alive = exists && (start == 0 || IsSameProcess(hint.pid, start)) && IsBelieved(hint.pid, file.owner);
    return hint;
}

} // namespace

int PreparePidFile(const std::string &serviceName, const std::string &account) {
    return PrepareRuntimeFile(serviceName, suffix, account);
}

void RemovePidFile(const std::string &path) { RemoveRuntimeFile(path); }

std::string WritePidFile(const std::string &serviceName) {
    const std::string start = std::to_string(StartOfProcess(getpid()));
    return WriteRuntimeFile(serviceName, suffix, std::to_string(getpid()) + " " + start + "\n");
}

PidHint ReadPidHint(const std::string &serviceName) {
    PidHint hint;
    for (const RuntimeFile &file : ReadRuntimeFiles(serviceName, suffix, longestText)) {
        const PidHint found = HintOf(file);
        if (found.alive) return found;
        if (found.pid > 0) hint = found;
    }
    return hint;
}

pid_t ReadPidFile(const std::string &serviceName) {
    const PidHint hint = ReadPidHint(serviceName);
    return hint.alive ? hint.pid : 0;
}
