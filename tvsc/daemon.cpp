// SPDX-License-Identifier: MIT
// daemon: questions to the daemon itself.
//
// It answers nothing while it works, and at boot nothing before the automatic services are started, although connecting
// to it succeeds: these commands wait.
#include "tvsc/daemon.h"

#include "tvsc/daemon_process.h"
#include "tvsc/json_output.h"
#include "tvsc/report.h"
#include "tvsc/words.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto onlinePause = std::chrono::milliseconds(100);
constexpr auto pingPause = std::chrono::milliseconds(200);
constexpr double goodbyeLimitSec = 10;

// Whether the daemon answers within a call's time-out, or before `limit` where that comes earlier. *initCode: what came
// of its load.
bool IsDaemonThere(const Options &options, Clock::time_point limit, DWORD *initCode) {
    const double leftSec = std::chrono::duration<double>(limit - Clock::now()).count();
    const double timeoutSec = std::min(std::max(leftSec, 0.1), options.callTimeoutSec);
    (void)tvSetCallTimeout(nullptr, static_cast<DWORD>(timeoutSec * 1000)); // null is always valid
    return ServiceHandle(tvOpenDaemon(options.host.c_str(), initCode)) != nullptr;
}

Clock::time_point After(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

double TimedPing(Session &session, bool *answered) {
    const Clock::time_point begin = Clock::now();
    *answered = tvPingDaemon(session.manager.get()) != FALSE;
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

} // namespace

int RunPing(const Options &options, int count) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, false);
    PingReport report{opened == EXIT_DONE, session.initCode, {}};
    for (int i = 0; report.reachable && i < count; ++i) {
        if (i > 0) std::this_thread::sleep_for(pingPause);
        report.roundTripsMs.push_back(TimedPing(session, &report.reachable));
        if (!options.json && report.reachable) fmt::print("answer after {:.3f} ms\n", report.roundTripsMs.back());
    }
    if (options.json) PrintPingJson(options, report);
    if (opened != EXIT_DONE) return opened;
    return report.reachable ? EXIT_DONE : EXIT_UNREACHABLE;
}

int RunWaitOnline(const Options &options) {
    const Clock::time_point limit = After(options.waitTimeoutSec);
    PingReport report{false, 0, {}};
    while (!(report.reachable = IsDaemonThere(options, limit, &report.initCode)) && Clock::now() <= limit) {
        std::this_thread::sleep_for(onlinePause);
    }
    if (!report.reachable) {
        fmt::print(stderr, "tvsc: the service daemon does not answer: {}\n", CodeText(GetLastError()));
    }
    const bool isLoaded = report.reachable && report.initCode == ERROR_SUCCESS;
    if (report.reachable && !isLoaded) {
        fmt::print(
            stderr,
            "tvsc: the daemon answers, but without its services: {}\n  which key is to blame tells: tvsc order\n",
            CodeText(report.initCode));
    }
    if (options.json) PrintPingJson(options, report);
    return report.reachable ? ExitStatusOf(report.initCode) : static_cast<int>(EXIT_TIMED_OUT);
}

int RunDaemonStatus(const Options &options) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, false);
    const bool isSeen = opened == EXIT_DONE && IsThisMachine(options);
    const std::optional<DaemonProcess> process = isSeen ? FindAnsweringDaemon() : std::nullopt;
    if (options.json) {
        PrintPingJson(options, {opened == EXIT_DONE, session.initCode, {}, process});
    } else if (opened == EXIT_DONE) {
        fmt::print("running, {}{}\n", session.initCode == 0 ? "database loaded" : CodeText(session.initCode),
                   process ? fmt::format("; process {}, for {}", process->process, DurationText(process->uptimeMs))
                           : "");
    }
    if (opened != EXIT_DONE) return opened;
    return ExitStatusOf(session.initCode);
}

int RunDaemonStop(const Options &options) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, false);
    if (opened != EXIT_DONE) return Finish(session);
    if (options.dryRun) {
        Done(session, options.host, "daemon stop", "would be stopped; services would be left running");
        return Finish(session);
    }
    if (!tvStopDaemon(session.manager.get())) {
        Failed(session, options.host, "daemon stop", GetLastError());
        return Finish(session);
    }
    const Clock::time_point limit = After(goodbyeLimitSec);
    while (IsDaemonThere(options, limit, nullptr)) {
        if (Clock::now() > limit) {
            Failed(session, options.host, "daemon stop", ERROR_TIMEOUT, "still there");
            return Finish(session);
        }
        std::this_thread::sleep_for(onlinePause);
    }
    Done(session, options.host, "daemon stop", "stopped; services were left running");
    return Finish(session);
}
