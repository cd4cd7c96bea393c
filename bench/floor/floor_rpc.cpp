// SPDX-License-Identifier: MIT
// floor_rpc: a bare libtirpc server, written as its manual has it: svctcp_create, svc_register, svc_run.
//
// usage: floor_rpc            answers FLOORPROG
//        floor_rpc service    answers a start request under the number of this process, as a service process does
#include "bench/floor/floor_rpc.h"

#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The library declares xdr_void without the parameters that it is called with.
xdrproc_t nothing = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));

template <typename Record>
xdrproc_t Untyped(bool_t (*routine)(XDR *, Record *)) {
    return reinterpret_cast<xdrproc_t>(routine);
}

template <typename Argument, typename Result>
void Answer(SVCXPRT *transport, bool_t (*decode)(XDR *, Argument *), Result (*serve)(const Argument &),
            bool_t (*encode)(XDR *, Result *)) {
    Argument argument = {};
    if (!svc_getargs(transport, Untyped(decode), reinterpret_cast<char *>(&argument))) {
        svcerr_decode(transport);
        return;
    }
    Result result = serve(argument);
    (void)svc_sendreply(transport, Untyped(encode), reinterpret_cast<char *>(&result));
    (void)svc_freeargs(transport, Untyped(decode), reinterpret_cast<char *>(&argument));
}

FloorStatus ServeStatus(const int &handle) { return {{0, 0x10, 1, 0, 0, 0, 0, handle}}; }

FloorBytes ServeEcho(const FloorEcho &call) {
    static std::vector<char> reply;
    reply.resize(call.replyBytes);
    return {call.replyBytes, reply.data()};
}

// Entries as long as those of the services that the daemon is measured with.
FloorList ServeList(const int &count) {
    static std::vector<FloorEntry> entries;
    static char name[] = "service00001";
    static char displayName[] = "Service number 00001";
    entries.assign(static_cast<std::size_t>(count), {name, displayName, {0x10, 1, 0, 0, 0, 0, 0}, nullptr});
    for (std::size_t i = 1; i < entries.size(); ++i) {
        entries[i - 1].next = &entries[i];
    }
    return {entries.empty() ? nullptr : entries.data()};
}

void Dispatch(svc_req *request, SVCXPRT *transport) {
    switch (request->rq_proc) {
    case NULLPROC: (void)svc_sendreply(transport, nothing, nullptr); return;
    case FLOOR_STATUS: return Answer(transport, xdr_int, ServeStatus, xdr_FloorStatus);
    case FLOOR_ECHO: return Answer(transport, xdr_FloorEcho, ServeEcho, xdr_FloorBytes);
    case FLOOR_LIST: return Answer(transport, xdr_int, ServeList, xdr_FloorList);
    default: svcerr_noproc(transport);
    }
}

void DispatchStart(svc_req *, SVCXPRT *transport) { (void)svc_sendreply(transport, nothing, nullptr); }

} // namespace

int main(int argc, char **argv) {
    const bool isService = argc > 1 && std::strcmp(argv[1], "service") == 0;
    const u_long program = isService ? FLOORSERVICEPROG + static_cast<u_long>(getpid()) : FLOORPROG;
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    (void)pmap_unset(program, FLOORVERS);
    if (transport == nullptr ||
        !svc_register(transport, program, FLOORVERS, isService ? DispatchStart : Dispatch, IPPROTO_TCP)) {
        (void)std::fprintf(stderr, "floor_rpc: cannot register\n");
        return 1;
    }
    svc_run();
    return 1;
}
