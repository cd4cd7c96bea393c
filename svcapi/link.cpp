// SPDX-License-Identifier: MIT
// link: connecting to the daemon and calling it.
#include "svcapi/link.h"

#include "servd/limits.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>

static_assert(TV_LONGEST_START_SEC == longestStartSec && TV_CALL_TIMEOUT_SEC == longestCallSec);

namespace {

std::atomic<CallClock::time_point> underWaySince;
std::atomic<std::chrono::milliseconds> firstCallTimeout =
    std::chrono::milliseconds(std::chrono::seconds(longestCallSec));

// Between two calls nothing is to be read from a connection: what can be read is its end.
bool IsAlive(CLIENT *client) {
    pollfd waiting = {-1, POLLIN | POLLRDHUP, 0};
    return clnt_control(client, CLGET_FD, &waiting.fd) && poll(&waiting, 1, 0) == 0;
}

timeval ToTimeval(std::chrono::milliseconds span) {
    return {static_cast<time_t>(span.count() / 1000), static_cast<suseconds_t>(span.count() % 1000 * 1000)};
}

} // namespace

CallClock::time_point CallUnderWaySince() { return underWaySince; }

std::chrono::milliseconds FirstCallTimeout() { return firstCallTimeout; }
void SetFirstCallTimeout(std::chrono::milliseconds timeout) { firstCallTimeout = timeout; }

bool IsThisMachine(const std::string &host) {
    char ownName[256] = {};
    (void)gethostname(ownName, sizeof ownName - 1); // an empty name is no host's
    return host == "localhost" || host == ownName || host.rfind("127.", 0) == 0;
}

DWORD Connect(DaemonLink &link) {
    if (link.client != nullptr && IsAlive(link.client.get())) return ERROR_SUCCESS;
    const CallClock::time_point begin = CallClock::now();
    link.client.reset(DialHost(link.host.c_str(), SERVDAEMONPROG, SERVDAEMONVERS));
    sockaddr_in address = {};
    const bool isThere = link.client != nullptr &&
                         clnt_control(link.client.get(), CLGET_SERVER_ADDR, reinterpret_cast<char *>(&address));
    if (const CallTracer trace = PresentCallTracer()) {
        trace({"dial", '"' + link.host + '"', isThere ? ERROR_SUCCESS : DWORD{RPC_S_SERVER_UNAVAILABLE}, std::nullopt,
               MsSince(begin)});
    }
    if (!isThere) return RPC_S_SERVER_UNAVAILABLE;
    const std::uint16_t port = ntohs(address.sin_port);
    if (link.port != 0 && link.port != port) ++link.restarts;
    link.port = port;
    return ERROR_SUCCESS;
}

DWORD CallOver(DaemonLink &link, const std::function<clnt_stat(CLIENT *, timeval)> &call) {
    if (link.client == nullptr) return RPC_S_CALL_FAILED;
    underWaySince = CallClock::now();
    const clnt_stat status = call(link.client.get(), ToTimeval(link.timeout));
    underWaySince = CallClock::time_point();
    if (status == RPC_SUCCESS) return ERROR_SUCCESS;
    link.client.reset();
    return status == RPC_TIMEDOUT ? ERROR_TIMEOUT : RPC_S_CALL_FAILED;
}
