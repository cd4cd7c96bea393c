// SPDX-License-Identifier: MIT
// link: one connection to a service daemon, made anew when it broke.
//
// A link is used by one call at a time, `busy` held. States: not connected -> Connect -> connected -> a failed call, or
// the daemon's end noticed by Connect -> not connected. A daemon that answers on another port than before is another
// one: `restarts` counts that, because the numbers of services are worth nothing then.
#pragma once

#include "rpc/dial.h"
#include "servd/servd_xdr.h"
#include "tv/winsvc.h"

#include <chrono>
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
};

// Since when the latest call is waiting for its answer, for whoever tells people why they wait; the clock's epoch while
// none is.
using CallClock = std::chrono::steady_clock;
[[nodiscard]] CallClock::time_point CallUnderWaySince();

// Makes sure of a live connection. Returns 0 or 1722 RPC_S_SERVER_UNAVAILABLE. Blocks for the waits of dial.h.
[[nodiscard]] DWORD Connect(DaemonLink &link);

// One call over a connected link; never dials, so that a service's number cannot meet another daemon than the one that
// gave it. The caller releases the result (AnswerGuard). Returns 0, 1460 ERROR_TIMEOUT, or 1726 RPC_S_CALL_FAILED;
// after either failure the link is no longer connected.
[[nodiscard]] DWORD CallDaemonRaw(DaemonLink &link, std::uint32_t procedure, xdrproc_t codeArgument, void *argument,
                                  xdrproc_t codeResult, void *result);

template <typename Argument, typename Result>
[[nodiscard]] DWORD CallDaemon(DaemonLink &link, ServdProcedure procedure, bool_t (*codeArgument)(XDR *, Argument *),
                               Argument *argument, bool_t (*codeResult)(XDR *, Result *), Result *result) {
    return CallDaemonRaw(link, procedure, reinterpret_cast<xdrproc_t>(codeArgument), argument,
                         reinterpret_cast<xdrproc_t>(codeResult), result);
}

// The routine of a record without fields; libtirpc declares xdr_void without the arguments that it is called with.
inline bool_t CodeNothing(XDR *, void *) { return TRUE; }

// A decoded record that is released at the end of its scope; points at a local record.
template <typename Record, bool_t (*Code)(XDR *, Record *)>
void FreeDecoded(Record *record) {
    xdr_free(reinterpret_cast<xdrproc_t>(Code), record);
}
template <typename Record, bool_t (*Code)(XDR *, Record *)>
using AnswerGuard = std::unique_ptr<Record, Calls<&FreeDecoded<Record, Code>>>;

inline DWORD AsCode(std::int32_t status) { return static_cast<DWORD>(status); }

SERVICE_STATUS ToWin32(const svd_status_t &status);
svd_status_t ToWire(const SERVICE_STATUS &status);
