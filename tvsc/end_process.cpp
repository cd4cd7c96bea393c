// SPDX-License-Identifier: MIT
// end_process: signals, and looks at /proc until the process is gone.
#include "tvsc/end_process.h"

#include "svcapi/process_stat.h"

#include <signal.h>

#include <chrono>
#include <thread>

namespace {

constexpr auto endPause = std::chrono::milliseconds(50);
constexpr double killSec = 5;

bool HasEnded(const TreeProcess &process, double timeoutSec) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSec);
    // One whose end nobody has taken yet has ended all the same.
    ProcessStat stat;
    while (ReadProcessStat(process.process, &stat) && stat.state != 'Z' && stat.startTicks == process.startTicks) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(endPause);
    }
    return true;
}

} // namespace

bool EndProcess(const TreeProcess &process, double timeoutSec) {
    SignalProcess(process, SIGTERM);
    if (!HasEnded(process, timeoutSec)) SignalProcess(process, SIGKILL);
    return HasEnded(process, killSec);
}
