// SPDX-License-Identifier: MIT
// reachability: the port mapper, the port, and who listens there.
//
// Rules that keep a port to some users (tv-guard) refuse the others as at a port where nobody listens. The kernel tells
// everybody of this machine who listens where: that tells both cases apart.
#include "tvsc/reachability.h"

#include "rpc/dial.h"
#include "servd/programs.h"
#include "svcapi/link.h"

#include <fmt/format.h>

#include <fstream>

namespace {

// One line a socket: number, local address, remote address, state.
bool IsListenedOn(std::uint16_t port) {
    for (const char *const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream sockets(table);
        std::string line, number, local, remote, state;
        while (sockets >> number >> local >> remote >> state && std::getline(sockets, line)) {
            if (state == "0A" && local.ends_with(fmt::format(":{:04X}", port))) return true;
        }
    }
    return false;
}

} // namespace

DaemonPresence LookForDaemon(const std::string &host) {
    in_addr address = {};
    if (!ResolveHost(host.c_str(), &address)) return DaemonPresence::unknown;
    const RpcClient mapper(DialPortMapper(address));
    if (mapper == nullptr) return DaemonPresence::unknown;
    const std::uint16_t port = PortOfProgram(mapper.get(), SERVDAEMONPROG, SERVDAEMONVERS);
    if (port == 0) return DaemonPresence::absent;
    if (RpcClient(DialPort(address, port, SERVDAEMONPROG, SERVDAEMONVERS)) != nullptr) return DaemonPresence::there;
    if (!IsThisMachine(host)) return DaemonPresence::unknown;
    return IsListenedOn(port) ? DaemonPresence::refused : DaemonPresence::absent;
}
