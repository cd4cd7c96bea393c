// SPDX-License-Identifier: MIT
// daemon: questions to the daemon itself.
//
// It answers nothing while it works, and at boot nothing before the automatic services are started, although connecting
// to it succeeds: these commands wait.
#include "tvsc/json_output.h"
#include "tvsc/tvsc.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto onlinePause = std::chrono::milliseconds(100);
constexpr auto pingPause = std::chrono::milliseconds(200);
constexpr auto goodbyeLimit = std::chrono::seconds(10);

bool IsDaemonThere(const Options &options) {
    DWORD initCode = 0;
    return ServiceHandle(tvOpenDaemon(options.host.c_str(), &initCode)) != nullptr;
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
    const Clock::time_point begin = Clock::now();
    const auto limit = std::chrono::duration<double>(options.waitTimeoutSec);
    while (!IsDaemonThere(options)) {
        if (Clock::now() - begin > limit) {
            fmt::print(stderr, "tvsc: the service daemon does not answer: {}\n", CodeText(GetLastError()));
            return EXIT_TIMED_OUT;
        }
        std::this_thread::sleep_for(onlinePause);
    }
    return EXIT_DONE;
}

int RunDaemonStatus(const Options &options) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, false);
    if (options.json) {
        PrintPingJson(options, {opened == EXIT_DONE, session.initCode, {}});
    } else if (opened == EXIT_DONE) {
        fmt::print("running, {}\n", session.initCode == 0 ? "database loaded" : CodeText(session.initCode));
    }
    if (opened != EXIT_DONE) return opened;
    return ExitStatusOf(session.initCode);
}

int RunDaemonStop(const Options &options) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, false);
    if (opened != EXIT_DONE) return opened;
    if (!tvStopDaemon(session.manager.get())) {
        Failed(session, options.host, "daemon stop", GetLastError());
        return Finish(session);
    }
    const Clock::time_point begin = Clock::now();
    while (IsDaemonThere(options)) {
        if (Clock::now() - begin > goodbyeLimit) {
            Failed(session, options.host, "daemon stop", ERROR_TIMEOUT, "still there");
            return Finish(session);
        }
        std::this_thread::sleep_for(onlinePause);
    }
    Done(session, options.host, "daemon stop", "stopped; services were left running");
    return Finish(session);
}
