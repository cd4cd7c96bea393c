// SPDX-License-Identifier: MIT
// serving: registration with the port mapper, and the loop.
//
// Thread: main thread only.
#include "servd/serving.h"

#include "servd/programs.h"
#include "servd/servdsvc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void Fail(const char *message) {
    (void)std::fwrite(message, 1, std::strlen(message), stderr);
    std::exit(1);
}

SVCXPRT *CreateTcpTransport() {
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (transport == nullptr) Fail("cannot create tcp service.");
    return transport;
}

void RegisterOverTcp(SVCXPRT *transport) {
    if (!svc_register(transport, SERVDAEMONPROG, SERVDAEMONVERS, servdaemonprog_1, IPPROTO_TCP)) {
        Fail("unable to register (SERVDAEMONPROG, SERVDAEMONVERS, tcp).");
    }
}

void Serve() {
    svc_run();
    Fail("svc_run returned");
}
