// SPDX-License-Identifier: MIT
// ending: leaving the port mapper from inside a signal handler, and ending the process there.
//
// svc_unregister and exit cannot be called there: the interrupted code may hold libtirpc's or malloc's locks, and the
// process would hang for ever. The request to the port mapper is therefore encoded beforehand (the one that rpcb_unset
// sends) and sent by hand, the same way as the library sent the registration: over the port mapper's local socket,
// where the caller is known by its user id; and where that socket is not to be seen, in a container or a /run of one's
// own, over the loopback interface, where a port that only root can have tells as much. Thread: prepared on the main
// thread; the handler runs on whichever thread the signal finds.
#include "servd/ending.h"

#include "rpc/codec.h"
#include "rpc/message.h"
#include "servd/servd_xdr.h"

#include <netinet/in.h>
#include <rpc/pmap_prot.h>
#include <rpc/rpcb_prot.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int waitLimitMs = 250; // for each of three steps

MessageOutput unsetRequest; // encoded once, never released
int localSocket = -1;       // both not connected yet
int loopbackSocket = -1;
alignas(16) char handlerStack[64 * 1024];

bool EncodeUnsetRequest() {
    XDR xdrs;
    if (!BeginMessage(&unsetRequest, &xdrs)) return false;
    rpc_msg call = {};
    call.rm_xid = static_cast<u_int32_t>(getpid());
    call.rm_direction = CALL;
    call.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    call.rm_call.cb_prog = RPCBPROG;
    call.rm_call.cb_vers = RPCBVERS;
    std::uint32_t procedure = RPCBPROC_UNSET;
    opaque_auth credential = _null_auth;
    opaque_auth verifier = _null_auth;
    char every[] = ""; // all transports at once, whatever the address
    char owner[16];
    (void)std::snprintf(owner, sizeof owner, "%u", geteuid());
    rpcb entry = {};
    entry.r_prog = SERVDAEMONPROG;
    entry.r_vers = SERVDAEMONVERS;
    entry.r_netid = every;
    entry.r_addr = every;
    entry.r_owner = owner;
    return xdr_callhdr(&xdrs, &call) && CodeField(&xdrs, procedure) && xdr_opaque_auth(&xdrs, &credential) &&
           xdr_opaque_auth(&xdrs, &verifier) && xdr_rpcb(&xdrs, &entry) && FinishMessage(&unsetRequest);
}

// A blocking socket whose waits are bounded; made beforehand, because the descriptor table may be full later.
int MakePortMapperSocket(int family) {
    const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit = {0, suseconds_t{waitLimitMs} * 1000};
    (void)setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    (void)setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return descriptor;
}

bool ConnectLocally() {
    sockaddr_un portMapper = {AF_UNIX, _PATH_RPCBINDSOCK};
    return connect(localSocket, reinterpret_cast<const sockaddr *>(&portMapper), sizeof portMapper) == 0;
}

// Takes one of the ports that only root can have, where it can have one.
void BindToReservedPort() {
    sockaddr_in own = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    for (int port = IPPORT_RESERVED - 1; port >= IPPORT_RESERVED / 2; --port) {
        own.sin_port = htons(static_cast<std::uint16_t>(port));
        if (bind(loopbackSocket, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0 || errno != EADDRINUSE) {
            return;
        }
    }
}

bool ConnectOverLoopback() {
    BindToReservedPort();
    const sockaddr_in portMapper = {AF_INET, htons(PMAPPORT), {htonl(INADDR_LOOPBACK)}, {}};
    return connect(loopbackSocket, reinterpret_cast<const sockaddr *>(&portMapper), sizeof portMapper) == 0;
}

// The connected socket, -1 for none. A port mapper that is there, but does not accept in time, is not tried again.
int ReachPortMapper() {
    if (ConnectLocally()) return localSocket;
    if (errno == EAGAIN) return -1;
    return ConnectOverLoopback() ? loopbackSocket : -1;
}

void LeavePortMapper() {
    const int portMapper = ReachPortMapper();
    char answer[64];
    if (portMapper >= 0 && send(portMapper, unsetRequest.bytes, unsetRequest.size, MSG_NOSIGNAL) > 0) {
        (void)recv(portMapper, answer, sizeof answer, 0); // the entry is gone once the answer is there
    }
}

} // namespace

void PrepareEnding() {
    localSocket = MakePortMapperSocket(AF_UNIX);
    loopbackSocket = MakePortMapperSocket(AF_INET);
    if (!EncodeUnsetRequest()) ReleaseOutput(&unsetRequest); // the process still ends; the entry stays
    stack_t stack = {};
    stack.ss_sp = handlerStack;
    stack.ss_size = sizeof handlerStack;
    (void)sigaltstack(&stack, nullptr); // without it only a stack overflow goes uncaught
}

void CatchSignal(int signalNumber, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_ONSTACK | SA_RESTART;
    sigfillset(&action.sa_mask);
    (void)sigaction(signalNumber, &action, nullptr); // the five numbers are valid and may be caught
}

void EndOnSignal() {
    LeavePortMapper();
    _exit(0);
}
