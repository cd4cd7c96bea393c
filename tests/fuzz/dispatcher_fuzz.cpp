// SPDX-License-Identifier: MIT
// Fuzz target over the dispatcher with all its procedures, handlers included, above a registry in memory: no requests
// may crash the daemon, each gets one reply that encodes, and what is left answers like a database.
//
// Input: requests one after the other: the procedure in one byte, the number of argument bytes in two, the arguments.
// A start is asked under the database lock, so that it goes no further than the answers before a process, and a stop
// not at all.
#include "rpc/message.h"
#include "servd/servdsvc.h"
#include "tests/support/memory_registry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

// --- a transport that has one request and counts the replies ---

XDR arguments;
MessageOutput output;
int replies;

bool_t GetArguments(SVCXPRT * /*transport*/, xdrproc_t code, void *record) { return code(&arguments, record); }

bool_t FreeArguments(SVCXPRT * /*transport*/, xdrproc_t code, void *record) {
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    return code(&xdrs, record);
}

bool_t TakeReply(SVCXPRT * /*transport*/, rpc_msg *message) {
    XDR xdrs;
    const bool encoded = BeginMessage(&output, &xdrs) && xdr_replymsg(&xdrs, message) && FinishMessage(&output);
    Require(encoded, "the reply encodes");
    ++replies;
    return TRUE;
}

std::remove_pointer_t<decltype(SVCXPRT::xp_ops)> operations = {
    .xp_recv = nullptr,
    .xp_stat = nullptr,
    .xp_getargs = GetArguments,
    .xp_reply = TakeReply,
    .xp_freeargs = FreeArguments,
    .xp_destroy = nullptr,
};

void Dispatch(std::uint32_t procedure, char *bytes, std::size_t count) {
    if (procedure == STOP_DAEMON_SERVICE) return;
    xdrmem_create(&arguments, bytes, static_cast<u_int>(count), XDR_DECODE);
    SVCXPRT transport = {};
    transport.xp_ops = &operations;
    svc_req request = {};
    request.rq_proc = procedure;
    request.rq_xprt = &transport;
    const std::int32_t lockId = svcdblock.lockId;
    if (procedure == START_SERVICE) svcdblock.lockId = 1;
    replies = 0;
    servdaemonprog_1(&request, &transport);
    if (procedure == START_SERVICE) svcdblock.lockId = lockId;
    Require(replies == 1, "one reply to a request");
}

void FillDatabase() {
    InstallMemoryRegistry();
    InstallService("Alpha", {.displayName = "First", .imagePath = "/bin/alpha", .group = "Net", .tag = 2});
    InstallService("Beta", {.type = SERVICE_WIN32_SHARE_PROCESS,
                            .imagePath = "/bin/alpha",
                            .group = "Net",
                            .tag = 1,
                            .dependencies = {"Alpha", "+Disk"}});
    InstallService("Gamma", {.imagePath = "/bin/gamma", .group = "Disk", .dependencies = {"Beta"}});
    (void)ReadGroupOrderList(&firstunorderedgroupindex);
    (void)ReadServiceDatabase();
    (void)SortServicesInGroups();
}

void CheckDatabase() {
    for (std::int32_t index = 0; index < svcdbsize; ++index) {
        if (svcdb[index].name == nullptr) continue;
        const std::int32_t found = GetServiceIndexFromName(svcdb[index].name);
        Require(found >= 0 && found <= index, "each service is found by its name");
        Require(svcdb[index].visiting == 0 && svcdb[index].visited == 0, "no mark of a walk is left");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FillDatabase();
    while (size >= 3) {
        const std::uint32_t procedure = data[0];
        const std::size_t wanted = static_cast<std::size_t>(data[1]) * 256 + data[2];
        data += 3;
        size -= 3;
        const std::size_t count = std::min(wanted, size);
        std::string bytes(reinterpret_cast<const char *>(data), count);
        Dispatch(procedure, bytes.data(), count);
        data += count;
        size -= count;
    }
    CheckDatabase();
    EmptyServiceDatabase();
    RemoveMemoryRegistry();
    return 0;
}
