// SPDX-License-Identifier: MIT
// enumeration_answer: a client handle whose every call is answered with the bytes in hand.
#include "tests/support/enumeration_answer.h"

#include "servd/servd_xdr.h"
#include "svcapi/calls.h"

#include <cstring>
#include <memory>

namespace {

struct Answer {
    char *bytes;
    std::size_t size;
    std::size_t used; // of the last call
};

clnt_stat Call(CLIENT *client, rpcproc_t /*procedure*/, xdrproc_t /*codeArgument*/, void * /*argument*/,
               xdrproc_t codeResult, void *result, timeval /*timeout*/) {
    auto *answer = reinterpret_cast<Answer *>(client->cl_private);
    XDR xdrs;
    xdrmem_create(&xdrs, answer->bytes, static_cast<u_int>(answer->size), XDR_DECODE);
    if (!codeResult(&xdrs, result)) return RPC_CANTDECODERES;
    answer->used = XDR_GETPOS(&xdrs);
    return RPC_SUCCESS;
}

CLIENT::clnt_ops operations = {
    .cl_call = Call,
    .cl_abort = [](CLIENT *) {},
    .cl_geterr = [](CLIENT *, rpc_err *) {},
    .cl_freeres = [](CLIENT *, xdrproc_t, void *) -> bool_t { return TRUE; },
    .cl_destroy = [](CLIENT *client) { delete client; },
    .cl_control = [](CLIENT *, u_int, void *) -> bool_t { return FALSE; },
};

RpcClient MakeClient(Answer *answer) {
    CLIENT *client = new CLIENT{};
    client->cl_ops = &operations;
    client->cl_private = answer;
    return RpcClient(client);
}

} // namespace

TakenAnswer TakenByApi(std::string_view bytes, std::size_t offset, ServiceList *services) {
    const std::unique_ptr<char[]> room(new char[offset + bytes.size()]); // aligned, and ends where the bytes do
    std::memcpy(room.get() + offset, bytes.data(), bytes.size());
    Answer answer = {room.get() + offset, bytes.size(), 0};
    DaemonLink link;
    link.client = MakeClient(&answer);
    TakenAnswer taken;
    taken.status = EnumerateRecords(link, 0, 0, 0, &taken.resumeIndex, &taken.bytesNeeded, services);
    for (const ServiceList::Place &place : services->places) {
        const SERVICE_STATUS &status = place.status;
        taken.services.push_back(
            {std::string(NameIn(*services, place)),
             std::string(DisplayNameIn(*services, place)),
             {status.dwServiceType, status.dwCurrentState, status.dwControlsAccepted, status.dwWin32ExitCode,
              status.dwServiceSpecificExitCode, status.dwCheckPoint, status.dwWaitHint}});
    }
    if (link.client == nullptr) return {}; // a call that fails ends the connection
    taken.isDecoded = true;
    taken.bytesUsed = answer.used;
    return taken;
}

TakenAnswer TakenByApi(std::string_view bytes, std::size_t offset) {
    ServiceList services;
    return TakenByApi(bytes, offset, &services);
}

TakenAnswer TakenAsRecord(std::string_view bytes) {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN record = {};
    const RecordGuard<servd_SERV_ENUM_STATUS_SERVICE_RETURN> released(&record);
    XDR xdrs;
    xdrmem_create(&xdrs, const_cast<char *>(bytes.data()), static_cast<u_int>(bytes.size()), XDR_DECODE);
    if (!xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN(&xdrs, &record)) return {};
    TakenAnswer taken = {
        .isDecoded = true, .bytesUsed = XDR_GETPOS(&xdrs), .status = static_cast<std::uint32_t>(record.status)};
    if (record.status != 0) return taken;
    taken.bytesNeeded = record.bytesNeeded;
    taken.resumeIndex = record.resumeIndex;
    for (const svd_enum_status_list_t *link = record.services; link != nullptr; link = link->next) {
        TakenService service = {link->name, link->displayName, {}};
        VisitFields(link->status,
                    [&service](std::int32_t word) { service.status.push_back(static_cast<std::uint32_t>(word)); });
        taken.services.push_back(std::move(service));
    }
    return taken;
}
