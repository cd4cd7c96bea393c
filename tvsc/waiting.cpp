// SPDX-License-Identifier: MIT
// waiting: watching a service until it is where it should be.
#include "tvsc/waiting.h"

#include "svcapi/pid_file.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/progress_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
// Looks come the closer the less time has passed: what is waited in vain is a small part of what the service takes, and
// one that takes long costs few of them.
constexpr auto shortestPause = std::chrono::microseconds(200);
constexpr auto longestPause = std::chrono::milliseconds(250);
constexpr int pauseShare = 8; // of the time that has passed

Clock::duration PauseAfter(Clock::duration passed) {
    return std::clamp<Clock::duration>(passed / pauseShare, shortestPause, longestPause);
}

// Whether the service's process has ended without taking its hint along, as a killed one does. A hint that was there
// before may be of a process long gone.
bool HasDied(const std::string &name, const PidHint &before, time_t begunAt) {
    const PidHint hint = ReadPidHint(name);
    const bool isPresent = hint.writtenAt >= begunAt || (before.alive && before.pid == hint.pid);
    return hint.pid != 0 && !hint.alive && isPresent;
}

bool tellsWaits = false;

// What is waited for, to somebody who sits there and waits, too. What takes less than a second is no wait.
void ShowWait(const Session &session, const std::string &name, const SERVICE_STATUS &status, Clock::duration passed) {
    const Options &options = session.options;
    if (tellsWaits || options.trace || options.quiet || options.json || !CanShowProgress()) return;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(passed);
    if (seconds.count() == 0) return;
    std::string text = fmt::format("{}: {}, {}", name, StateSummary(status), DurationText(seconds.count() * 1000));
    if (const std::string steps = StepsText(status); !steps.empty()) text += " " + steps;
    ShowProgress(Printable(text));
}

// A state, a check point or a hint that was not told yet.
void TellState(const Session &session, const std::string &name, const SERVICE_STATUS &status, std::string *told) {
    const std::string state = StateSummary(status);
    if (state != *told) Note(session, fmt::format("tvsc: {}: {}", name, state));
    *told = state;
}

WaitEnd LookUntil(Session &session, SC_HANDLE service, const std::string &name, DWORD wanted, bool stoppedIsEnd,
                  SERVICE_STATUS *last) {
    const auto limit = std::chrono::duration<double>(session.options.waitTimeoutSec);
    const bool hasHints = stoppedIsEnd && IsThisMachine(session.options);
    const PidHint hintBefore = ReadPidHint(name);
    const Clock::time_point begin = Clock::now();
    std::string told;
    for (;;) {
        if (!QueryServiceStatus(service, last)) return WaitEnd::unreachable;
        if (last->dwCurrentState == wanted) return WaitEnd::reached;
        if (tellsWaits) TellState(session, name, *last, &told);
        if (hasHints && HasDied(name, hintBefore, session.begunAt)) {
            // The last report may have crossed with the look before.
            if (!QueryServiceStatus(service, last)) return WaitEnd::unreachable;
            if (last->dwCurrentState == wanted) return WaitEnd::reached;
            if (last->dwCurrentState != SERVICE_STOPPED) return WaitEnd::died;
        }
        if (stoppedIsEnd && last->dwCurrentState == SERVICE_STOPPED) return WaitEnd::stopped;
        const Clock::duration passed = Clock::now() - begin;
        if (passed > limit) return WaitEnd::timedOut;
        ShowWait(session, name, *last, passed);
        std::this_thread::sleep_for(PauseAfter(passed));
    }
}

} // namespace

void TellWaits() { tellsWaits = true; }

WaitEnd WaitForState(Session &session, SC_HANDLE service, const std::string &name, DWORD wanted, bool stoppedIsEnd,
                     SERVICE_STATUS *last) {
    const WaitEnd end = LookUntil(session, service, name, wanted, stoppedIsEnd, last);
    EraseProgress();
    return end;
}
