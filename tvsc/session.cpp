// SPDX-License-Identifier: MIT
// session: connecting to the daemon.
#include "tvsc/session.h"

#include "servd/limits.h"
#include "svcapi/link.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/progress_line.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <thread>

namespace {

constexpr auto busyAfter = std::chrono::seconds(2);
constexpr auto watchInterval = std::chrono::milliseconds(250);

bool IsBusy() {
    const CallClock::time_point since = CallUnderWaySince();
    return since != CallClock::time_point() && CallClock::now() - since > busyAfter;
}

// Whom the rules of tv-guard(8) admit besides root.
constexpr const char *admittedGroup = "tv-admin";

// Whether the machine has the group, and the user is neither root nor in it. The rules know members by their user ids,
// so that the group database counts and not what this process has of it.
bool IsKeptOut(std::string *user) {
    const struct passwd *entry = geteuid() == 0 ? nullptr : getpwuid(geteuid());
    if (entry == nullptr) return false;
    *user = entry->pw_name;
    const gid_t primary = entry->pw_gid;
    const struct group *group = getgrnam(admittedGroup);
    if (group == nullptr || primary == group->gr_gid || getegid() == group->gr_gid) return false;
    char **members = group->gr_mem;
    while (*members != nullptr && *user != *members) {
        ++members;
    }
    return *members == nullptr;
}

void TellWhyUnavailable(const Session &session) {
    std::string user;
    if (IsThisMachine(session.options) && IsKeptOut(&user)) {
        Note(session, fmt::format("  only root and the members of the group {0} reach it; as root: adduser {1} {0}",
                                  admittedGroup, user));
    } else {
        Note(session, "  is servd running, and rpcbind? (rpcinfo -p)");
    }
}

} // namespace

void TraceCalls() {
    SetCallTracer([](const TracedCall &call) {
        const std::string answer = call.code != ERROR_SUCCESS ? "no answer: " + CodeText(call.code)
                                   : !call.status             ? "answered"
                                   : *call.status == 0        ? "0"
                                                              : CodeText(static_cast<DWORD>(*call.status));
        fmt::print(
            stderr, "tvsc: {}\n",
            Printable(fmt::format("{}({}) = {}  {:.3f} ms", call.name, call.arguments, answer, call.milliseconds)));
    });
}

bool IsThisMachine(const Options &options) { return IsThisMachine(options.host); }

void WatchForBusyDaemon() {
    std::thread([] {
        while (!IsBusy()) {
            std::this_thread::sleep_for(watchInterval);
        }
        EraseProgress();
        fmt::print(stderr, "tvsc: the daemon is busy; it serves one request at a time, and a start may take it {} s\n",
                   longestStartSec);
    }).detach();
}

int OpenSession(Session &session, bool needDatabase) {
    (void)tvSetCallTimeout(nullptr, static_cast<DWORD>(session.options.callTimeoutSec * 1000)); // null is always valid
    session.manager.reset(tvOpenDaemon(session.options.host.c_str(), &session.initCode));
    if (session.manager == nullptr) {
        const DWORD code = GetLastError();
        Failed(session, session.options.host, "connect", code, "the service daemon does not answer");
        if (code == RPC_S_SERVER_UNAVAILABLE) TellWhyUnavailable(session);
        return ExitStatusOf(code);
    }
    if (needDatabase && session.initCode != ERROR_SUCCESS) {
        Failed(session, session.options.host, "connect", session.initCode, "the daemon runs, but without its services");
        Note(session,
             "  is the registry daemon running? does every service have Type and DisplayName? try: tvsc order");
        return ExitStatusOf(session.initCode);
    }
    return EXIT_DONE;
}
