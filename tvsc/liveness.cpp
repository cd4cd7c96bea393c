// SPDX-License-Identifier: MIT
// liveness: hints, and what follows from them.
#include "tvsc/liveness.h"

#include "svcapi/pid_file.h"
#include "svcapi/process_stat.h"
#include "tvsc/words.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace {

std::int64_t UptimeMs(pid_t process) {
    const std::uint64_t startTicks = StartOfProcess(process);
    return startTicks == 0 ? 0 : std::max<std::int64_t>(MsSinceBoot() - MsOfTicks(startTicks), 0);
}

bool IsPending(DWORD state) { return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING; }

} // namespace

ProcessView LookAtProcess(const Options &options, const std::string &name, DWORD state) {
    if (state == SERVICE_STOPPED || !IsThisMachine(options)) return {};
    const PidHint hint = ReadPidHint(name);
    if (hint.pid == 0) return {};
    return {hint.pid, !hint.alive, hint.alive ? UptimeMs(hint.pid) : 0};
}

std::int64_t MsOfTicks(std::uint64_t ticks) {
    const auto ticksPerSec = static_cast<std::uint64_t>(std::max(sysconf(_SC_CLK_TCK), 1L));
    return static_cast<std::int64_t>(ticks * 1000 / ticksPerSec);
}

std::string StateText(const SERVICE_STATUS &status, const ProcessView &process) {
    const std::string state = StateSummary(status);
    return process.isGone ? fmt::format("{}, but process {} is gone", state, process.process) : state;
}

bool SettleGone(SC_HANDLE service, SERVICE_STATUS *status) {
    BOOL complete = FALSE;
    if (!IsPending(status->dwCurrentState)) {
        SERVICE_STATUS answered = {};
        // Refused when it works: the daemon calls the process, and finds none.
        (void)ControlService(service, SERVICE_CONTROL_INTERROGATE, &answered);
        if (!tvQueryServiceStatusPassive(service, status, &complete)) return false;
    }
    // In a pending state nothing is asked of a process, and of a number that has another process by now no end is told.
    if (status->dwCurrentState != SERVICE_STOPPED && !tvDeclareServiceDead(service)) return false;
    return tvQueryServiceStatusPassive(service, status, &complete) && status->dwCurrentState == SERVICE_STOPPED;
}
