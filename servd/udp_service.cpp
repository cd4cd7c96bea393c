// SPDX-License-Identifier: MIT
// udp_service: the registration over UDP, which is kept and never used.
#include "servd/udp_service.h"

#include "servd/programs.h"
#include "servd/servdsvc.h"
#include "servd/serving.h"

#include <rpc/pmap_clnt.h>

void tarvo_nevercallthisfunction() {
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS);
    SVCXPRT *transport = svcudp_create(RPC_ANYSOCK);
    if (transport == nullptr) Fail("cannot create udp service.");
    if (!svc_register(transport, SERVDAEMONPROG, SERVDAEMONVERS, servdaemonprog_1, IPPROTO_UDP)) {
        Fail("unable to register (SERVDAEMONPROG, SERVDAEMONVERS, udp).");
    }
    RegisterOverTcp(CreateTcpTransport());
    Serve();
}
