// SPDX-License-Identifier: MIT
// predecessor: finding and ending it.
#include "tvhost/predecessor.h"

#include "svcapi/process_stat.h"
#include "tvhost/control_group.h"
#include "tvhost/process_tree.h"
#include "util/monotonic_ms.h"

#include <signal.h>
#include <unistd.h>

namespace {

constexpr int lookIntervalMs = 50;

bool Lives(const Predecessor &found) { return found.hostLives || found.programLives || found.groupLives; }

// Whether a process is there and has not ended.
bool IsThere(pid_t process, std::uint64_t start) {
    ProcessStat stat;
    return start != 0 && ReadProcessStat(process, &stat) && stat.startTicks == start && stat.state != 'Z';
}

bool IsLeft(const Predecessor &found) {
    const HostState &state = found.state;
    return (found.hostLives && IsThere(state.host, state.hostStart)) ||
           (found.programLives && IsThere(state.program, state.programStart)) ||
           HasProcesses(state.group, state.groupInode);
}

// Signals what lives of it. A tvhost that is asked to end has the rest ended.
void Signal(const Predecessor &found, int signal) {
    const HostState &state = found.state;
    const bool isAsked = signal != SIGKILL && found.hostLives;
    if (found.programLives && !isAsked) {
        (void)SignalDescendants(state.program, signal);
        SignalProcess({state.program, state.programStart}, signal);
    }
    if (found.hostLives) {
        if (signal == SIGKILL) (void)SignalDescendants(state.host, signal);
        SignalProcess({state.host, state.hostStart}, signal);
    }
    if (signal == SIGKILL) KillProcesses(state.group, state.groupInode);
}

bool AwaitEnd(const Predecessor &found, std::int64_t patienceMs, const std::function<bool(int milliseconds)> &pause) {
    const std::int64_t end = MonotonicMs() + patienceMs;
    while (IsLeft(found)) {
        if (MonotonicMs() >= end || !pause(lookIntervalMs)) return false;
    }
    return true;
}

} // namespace

bool FindPredecessor(const std::string &serviceName, Predecessor *found) {
    uid_t owner = 0;
    if (!ReadHostState(serviceName, &found->state, &owner)) return false;
    if (owner != 0 && owner != geteuid()) {
        return false; // another account's word says nothing about this one's processes
    }
    // One that has come to its end tells so before the daemon hears of it, and is gone in a moment.
    const bool isLeaving = found->state.phase == "stopped";
    found->hostLives = !isLeaving && found->state.host != getpid() && IsHostAlive(found->state, owner);
    found->programLives = IsProgramAlive(found->state, owner);
    found->groupLives = HasProcesses(found->state.group, found->state.groupInode);
    if (!Lives(*found)) RemoveLeftOver(found->state.group, found->state.groupInode);
    return Lives(*found);
}

std::string DescribePredecessor(const Predecessor &found) {
    std::string text = "an earlier start of it still runs:";
    if (found.hostLives) text += " tvhost is process " + std::to_string(found.state.host);
    if (found.programLives) {
        text += (found.hostLives ? ", its program " : " its program is process ") + std::to_string(found.state.program);
    }
    if (!found.hostLives && !found.programLives) text += " there are processes in " + found.state.group;
    return text;
}

bool EndPredecessor(const Predecessor &found, std::int64_t patienceMs,
                    const std::function<bool(int milliseconds)> &pause) {
    constexpr std::int64_t afterKillMs = 10'000;
    Signal(found, SIGTERM);
    if (!AwaitEnd(found, patienceMs, pause)) {
        Signal(found, SIGKILL);
        if (!AwaitEnd(found, afterKillMs, pause)) return false;
    }
    RemoveLeftOver(found.state.group, found.state.groupInode);
    return true;
}
