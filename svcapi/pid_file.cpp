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
constexpr char stoppedMark = 's';

PidHint HintOf(const RuntimeFile &file) {
    PidHint hint;
    hint.writtenAt = file.writtenAt;
    char mark = '\0';
    if (std::sscanf(file.text.c_str(), "%d %" SCNu64 " %c", &hint.pid, &hint.startTicks, &mark) < 1 || hint.pid <= 0)
        return {};
    hint.stopped = mark == stoppedMark;
    const bool exists = kill(hint.pid, 0) == 0 || errno == EPERM;
    hint.alive = exists && (hint.startTicks == 0 || IsSameProcess(hint.pid, hint.startTicks)) &&
                 IsBelieved(hint.pid, file.owner);
    return hint;
}

std::string TextOfThisProcess() { return std::to_string(getpid()) + " " + std::to_string(StartOfProcess(getpid())); }

bool HasEnded(pid_t process) {
    ProcessStat stat;
    return ReadProcessStat(process, &stat) && stat.state == 'Z';
}

} // namespace

int PreparePidFile(const std::string &serviceName, const std::string &account) {
    return PrepareRuntimeFile(serviceName, suffix, account);
}

void RemovePidFile(const std::string &serviceName) { RemoveRuntimeFiles(serviceName, suffix, TextOfThisProcess()); }

std::string WritePidFile(const std::string &serviceName) {
    return WriteRuntimeFile(serviceName, suffix, TextOfThisProcess() + "\n");
}

void MarkPidFileStopped(const std::string &serviceName) {
    if (ReadPidHint(serviceName).pid != getpid()) return;
    (void)WriteRuntimeFile(serviceName, suffix, TextOfThisProcess() + " stopped\n");
}

pid_t FindOtherRun(const std::string &serviceName) {
    const PidHint hint = ReadPidHint(serviceName);
    return hint.alive && !hint.stopped && hint.pid != getpid() && !HasEnded(hint.pid) ? hint.pid : 0;
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
