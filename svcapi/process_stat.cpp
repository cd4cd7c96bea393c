// SPDX-License-Identifier: MIT
// process_stat: /proc/PID/stat, proc(5).
#include "svcapi/process_stat.h"

#include "util/guard.h"

#include <fcntl.h>
#include <time.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

bool ReadProcessStat(pid_t process, ProcessStat *stat) {
    int file = open(("/proc/" + std::to_string(process) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    char line[1024] = {};
    if (read(file, line, sizeof line - 1) <= 0) return false;
    // The second field is a name in brackets that may hold brackets and blanks.
    const char *behindName = std::strrchr(line, ')');
    if (behindName == nullptr) return false;
    std::uint64_t user = 0, system = 0, takenUser = 0, takenSystem = 0;
    const int fields = std::sscanf(behindName + 1,
                                   " %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %" SCNu64 " %" SCNu64 " %" SCNu64
                                   " %" SCNu64 " %*d %*d %*d %*d %" SCNu64 " %*u %" SCNu64,
                                   &stat->state, &stat->parent, &user, &system, &takenUser, &takenSystem,
                                   &stat->startTicks, &stat->memoryPages);
    stat->cpuTicks = user + system;
    stat->takenTicks = takenUser + takenSystem;
    return fields == 8;
}

std::uint64_t StartOfProcess(pid_t process) {
    ProcessStat stat;
    return ReadProcessStat(process, &stat) ? stat.startTicks : 0;
}

std::int64_t MsSinceBoot() {
    timespec now = {};
    (void)clock_gettime(CLOCK_BOOTTIME, &now); // cannot fail with this clock
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

bool IsSameProcess(pid_t process, std::uint64_t startTicks) {
    ProcessStat stat;
    if (process <= 0 || !ReadProcessStat(process, &stat)) return false;
    return startTicks == 0 || stat.startTicks == startTicks;
}
