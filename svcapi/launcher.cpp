// SPDX-License-Identifier: MIT
// launcher: looks at the parent process and at the daemon.
#include "svcapi/launcher.h"

#include "rpc/peer_owner.h"
#include "servd/servd_xdr.h"
#include "svcapi/link.h"
#include "svcapi/process_user.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

constexpr timeval lookTimeout = {1, 0};

uid_t launcher; // the user who may hand over starts and controls, besides root

} // namespace

void NoteLauncher() {
    // A parent that cannot be looked at is another user's: root's, who may anyway.
    if (!FindUserOf(getppid(), &launcher)) launcher = getuid();
}

bool IsFromLauncher(const sockaddr_in &peer, const sockaddr_in &local) {
    static bool told = false;
    uid_t user = 0;
    const PeerOwner found = FindPeerOwner(peer, local, &user);
    if (found == PeerOwner::Unasked && !told) {
        std::fputs("tvsvc: the kernel does not tell whose connections are: no start can be taken\n", stderr);
        told = true;
    }
    return found == PeerOwner::Known && (user == 0 || user == launcher);
}

bool MayDaemonStartProcesses(RpcClient *daemon) {
    if (*daemon == nullptr) {
        const in_addr here = {htonl(INADDR_LOOPBACK)};
        const RpcClient portMapper(DialPortMapper(here));
        if (portMapper == nullptr) return true; // it may come back
        const std::uint16_t port = PortOfProgram(portMapper.get(), SERVDAEMONPROG, SERVDAEMONVERS);
        rpc_err asked = {};
        clnt_geterr(portMapper.get(), &asked);
        if (port == 0) return asked.re_status != RPC_SUCCESS;
        daemon->reset(DialPort(here, port, SERVDAEMONPROG, SERVDAEMONVERS));
        if (*daemon == nullptr) return errno != ECONNREFUSED;
    }
    Nothing nothing;
    const clnt_stat status = CallProcedure(daemon->get(), Nothing{}, &nothing, lookTimeout);
    if (status == RPC_TIMEDOUT) return true;
    if (status != RPC_CANTSEND && status != RPC_CANTRECV) return false;
    daemon->reset(); // it has ended, or closed a connection that was silent too long
    return true;
}
