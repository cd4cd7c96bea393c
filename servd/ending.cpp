// SPDX-License-Identifier: MIT
// ending: leaving the port mapper from inside a signal handler, and ending the process there.
//
// svc_unregister and exit cannot be called there: the interrupted code may hold libtirpc's or malloc's locks, and the
// process would hang for ever. The request to the port mapper is therefore encoded beforehand and sent by hand over its
// local socket, where the caller is known by its user id (the same request that rpcb_unset sends).
// Thread: prepared on the main thread; the handler runs on whichever thread the signal finds.
#include "servd/ending.h"

#include "rpc/codec.h"
#include "rpc/message.h"
#include "servd/servd_xdr.h"

#include <rpc/rpcb_prot.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int waitLimitMs = 250; // for each of three steps

MessageOutput unsetRequest; // encoded once, never released
sockaddr_un portMapper;     // the address of its local socket
int portMapperSocket = -1;  // not connected yet
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
int MakePortMapperSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit = {0, suseconds_t{waitLimitMs} * 1000};
    (void)setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    (void)setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return descriptor;
}

void LeavePortMapper() {
    char answer[64];
    if (connect(portMapperSocket, reinterpret_cast<const sockaddr *>(&portMapper), sizeof portMapper) == 0 &&
        send(portMapperSocket, unsetRequest.bytes, unsetRequest.size, MSG_NOSIGNAL) > 0) {
        (void)recv(portMapperSocket, answer, sizeof answer, 0); // the entry is gone once the answer is there
    }
}

} // namespace

void PrepareEnding() {
    portMapper.sun_family = AF_UNIX;
    std::strcpy(portMapper.sun_path, _PATH_RPCBINDSOCK);
    portMapperSocket = MakePortMapperSocket();
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
