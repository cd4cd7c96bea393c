// SPDX-License-Identifier: MIT
// end_process: signals, and looks at /proc until the process is gone.
#include "tvsc/end_process.h"

#include "svcapi/process_stat.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr auto endPause = std::chrono::milliseconds(50);
constexpr double killSec = 5;
constexpr int mostRounds = 100;

using Clock = std::chrono::steady_clock;

Clock::time_point After(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// One whose end nobody has taken yet has ended all the same.
bool Lives(const TreeProcess &process) {
    ProcessStat stat;
    return ReadProcessStat(process.process, &stat) && stat.state != 'Z' && stat.startTicks == process.startTicks;
}

bool HasEnded(const TreeProcess &process, double timeoutSec) {
    const Clock::time_point limit = After(timeoutSec);
    while (Lives(process)) {
        if (Clock::now() > limit) return false;
        std::this_thread::sleep_for(endPause);
    }
    return true;
}

void SignalFrom(const std::vector<TreeProcess> &processes, std::size_t first, int signal) {
    for (; first < processes.size(); ++first) {
        SignalProcess(processes[first], signal);
    }
}

// Under SIGSTOP no process leaves a child behind that nobody has seen.
void StopAll(std::vector<TreeProcess> *processes) {
    std::size_t stopped = 0;
    for (int round = 0; round < mostRounds; ++round) {
        SignalFrom(*processes, stopped, SIGSTOP);
        stopped = processes->size();
        if (!AddDescendants(processes)) return;
    }
}

// Sends a signal to all, to those, too, that turn up while it is waited. Returns whether all have ended.
bool SignalUntilEnded(std::vector<TreeProcess> *processes, int signal, double timeoutSec) {
    const Clock::time_point limit = After(timeoutSec);
    std::size_t signalled = 0;
    for (;;) {
        (void)AddDescendants(processes);
        SignalFrom(*processes, signalled, signal);
        signalled = processes->size();
        if (std::none_of(processes->begin(), processes->end(), Lives)) return true;
        if (Clock::now() > limit) return false;
        std::this_thread::sleep_for(endPause);
    }
}

} // namespace

bool EndProcess(const TreeProcess &process, double timeoutSec) {
    SignalProcess(process, SIGTERM);
    if (!HasEnded(process, timeoutSec)) SignalProcess(process, SIGKILL);
    return HasEnded(process, killSec);
}

std::vector<TreeProcess> EndTrees(std::vector<TreeProcess> *processes, double timeoutSec) {
    if (SignalUntilEnded(processes, SIGTERM, timeoutSec)) return {};
    StopAll(processes);
    std::vector<TreeProcess> left;
    if (SignalUntilEnded(processes, SIGKILL, killSec)) return left;
    std::copy_if(processes->begin(), processes->end(), std::back_inserter(left), Lives);
    return left;
}
