// SPDX-License-Identifier: MIT
// waiting: watching a service until it is where it should be.
#include "tvsc/waiting.h"

#include "servd/limits.h"
#include "svcapi/pid_file.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto shortestPause = milliseconds(20);
constexpr auto longestPause = milliseconds(250);
constexpr auto grace = milliseconds(1000);        // beyond an announced wait
constexpr auto silentStart = milliseconds(30000); // without any report after a start

bool SameStatus(const SERVICE_STATUS &a, const SERVICE_STATUS &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

bool IsPending(DWORD state) {
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING || state == SERVICE_CONTINUE_PENDING ||
           state == SERVICE_PAUSE_PENDING;
}

// A status that has not moved for longer than it announced. After a start the service is given as much as a service
// that has begun to report announces, because the words of a start are the daemon's own.
bool IsOverdue(const SERVICE_STATUS &status, Clock::duration unchanged) {
    const auto announced = IsFreshQuerySafe(status) ? milliseconds(status.dwWaitHint) : silentStart;
    return IsPending(status.dwCurrentState) && status.dwWaitHint != 0 && unchanged > announced + grace;
}

// Whether the service's process has ended without taking its hint along, as a killed one does. A hint that was there
// before may be of a process long gone.
bool HasDied(const std::string &name, const PidHint &before, time_t begunAt) {
    const PidHint hint = ReadPidHint(name);
    const bool isPresent = hint.writtenAt >= begunAt || (before.alive && before.pid == hint.pid);
    return hint.pid != 0 && !hint.alive && isPresent;
}

} // namespace

bool IsFreshQuerySafe(const SERVICE_STATUS &status) {
    const SERVICE_STATUS justStarted = {status.dwServiceType, SERVICE_START_PENDING, 0, 0, 0, 0, startWaitHintMs};
    return !SameStatus(status, justStarted);
}

WaitEnd WaitForState(Session &session, SC_HANDLE service, const std::string &name, DWORD wanted, bool stoppedIsEnd,
                     SERVICE_STATUS *last) {
    const auto limit = std::chrono::duration<double>(session.options.waitTimeoutSec);
    const bool hasHints = stoppedIsEnd && IsThisMachine(session.options);
    const PidHint hintBefore = ReadPidHint(name);
    const Clock::time_point begin = Clock::now();
    Clock::time_point changed = begin;
    SERVICE_STATUS before = {};
    for (milliseconds pause = shortestPause;; pause = std::min(pause * 2, longestPause)) {
        if (!tvQueryServiceStatusPassive(service, last, nullptr)) return WaitEnd::unreachable;
        if (last->dwCurrentState == wanted) return WaitEnd::reached;
        if (!SameStatus(*last, before)) {
            changed = Clock::now();
            before = *last;
        }
        if (IsOverdue(*last, Clock::now() - changed) && !QueryServiceStatus(service, last)) return WaitEnd::unreachable;
        if (hasHints && HasDied(name, hintBefore, session.begunAt)) {
            // The last report may have crossed with the look before.
            if (!tvQueryServiceStatusPassive(service, last, nullptr)) return WaitEnd::unreachable;
            if (last->dwCurrentState == wanted) return WaitEnd::reached;
            if (last->dwCurrentState != SERVICE_STOPPED) return WaitEnd::died;
        }
        if (stoppedIsEnd && last->dwCurrentState == SERVICE_STOPPED) return WaitEnd::stopped;
        if (Clock::now() - begin > limit) return WaitEnd::timedOut;
        std::this_thread::sleep_for(pause);
    }
}
