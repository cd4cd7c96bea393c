// SPDX-License-Identifier: MIT
// link: one connection to a service daemon, made anew when it broke.
//
// A link is used by one call at a time, `busy` held. States: not connected -> Connect -> connected -> a failed call, or
// the daemon's end noticed by Connect -> not connected. A daemon that answers on another port than before is another
// one: `restarts` counts that, because the numbers of services are worth nothing then.
#pragma once

#include "rpc/dial.h"
#include "servd/servd_xdr.h"
#include "svcapi/call_trace.h"
#include "svcapi/packing.h"
#include "tv/winsvc.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

// The time-out that new links begin with: longer than a start may hold the daemon; see tvSetCallTimeout.
[[nodiscard]] std::chrono::milliseconds FirstCallTimeout();
void SetFirstCallTimeout(std::chrono::milliseconds timeout);

struct DaemonLink {
    std::timed_mutex busy; // held for the length of one public call; guards all other members
    std::string host;
    RpcClient client;                                       // null while not connected
    std::uint16_t port = 0;                                 // where the daemon was reached last, 0 before
    std::uint32_t restarts = 0;                             // how often it was found on another port than before
    std::chrono::milliseconds timeout = FirstCallTimeout(); // of one call
    ServiceList listed;                                     // of the enumeration under way; empty, with room, between
};

// Since when the latest call is waiting for its answer, for whoever tells people why they wait; the clock's epoch while
// none is.
using CallClock = std::chrono::steady_clock;
[[nodiscard]] CallClock::time_point CallUnderWaySince();
inline double MsSince(CallClock::time_point begin) {
    return std::chrono::duration<double, std::milli>(CallClock::now() - begin).count();
}

// Whether a daemon's host is this machine.
[[nodiscard]] bool IsThisMachine(const std::string &host);

// Makes sure of a live connection. Returns 0 or 1722 RPC_S_SERVER_UNAVAILABLE. Blocks for the waits of dial.h.
[[nodiscard]] DWORD Connect(DaemonLink &link);

// Has call(client, time-out) make one call over a connected link; never dials, so that a service's number cannot meet
// another daemon than the one that gave it. Returns 0, 1460 ERROR_TIMEOUT, or 1726 RPC_S_CALL_FAILED; after either
// failure the link is no longer connected.
[[nodiscard]] DWORD CallOver(DaemonLink &link, const std::function<clnt_stat(CLIENT *, timeval)> &call);

// The same for a call of the procedure of an argument record, told to whoever watches the calls.
//   result  where the call stores the answer, or its words at least
template <typename Argument, typename Call>
[[nodiscard]] DWORD CallTraced(DaemonLink &link, const Argument &argument, const ResultOf<Argument> &result,
                               Call call) {
    const CallClock::time_point begin = CallClock::now();
    const DWORD rc = CallOver(link, call);
    if (const CallTracer trace = PresentCallTracer()) {
        trace({NameOfProcedure(ProcedureOf<Argument>::number), TextOfRecord(argument), rc,
               rc == ERROR_SUCCESS ? StatusIn(result) : std::nullopt, MsSince(begin)});
    }
    return rc;
}

// Calls the procedure of an argument record that way; the result is to be released in any case.
template <typename Argument>
[[nodiscard]] DWORD CallDaemon(DaemonLink &link, const Argument &argument, ResultOf<Argument> *result) {
    return CallTraced(link, argument, *result, [&](CLIENT *client, timeval timeout) {
        return CallProcedure(client, argument, result, timeout);
    });
}
