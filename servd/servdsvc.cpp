// SPDX-License-Identifier: MIT
// servdsvc: the dispatcher of the service daemon's program.
//
// Thread: main thread only, one request at a time; the shared argument area and the handlers' static results rely on
// it.
#include "servd/servdsvc.h"

#include "servd/servd_svc_proc/handlers.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace {

// One procedure: how its argument and its result travel, and who answers it.
struct Procedure {
    xdrproc_t codeArgument;
    xdrproc_t codeResult;
    void *(*handle)(void *argument, svc_req *request);
};

// Holds the argument record of the request in hand; the create and change records are the largest.
alignas(std::max_align_t) char argumentArea[std::max(sizeof(servd_SERV_CREATE_SERVICE),
                                                     sizeof(servd_SERV_CHANGE_CONFIG_SERVICE))];

template <auto Handler, typename Argument, typename Result>
Procedure RowOf(xdrproc_t codeArgument, xdrproc_t codeResult, Result *(* /*handler*/)(Argument *, svc_req *)) {
    static_assert(sizeof(Argument) <= sizeof argumentArea);
    return {codeArgument, codeResult, [](void *argument, svc_req *request) -> void * {
                return Handler(static_cast<Argument *>(argument), request);
            }};
}

template <auto CodeArgument, auto CodeResult, auto Handler>
Procedure Row() {
    return RowOf<Handler>(reinterpret_cast<xdrproc_t>(CodeArgument), reinterpret_cast<xdrproc_t>(CodeResult), Handler);
}

// The procedure's number is its place; the null procedure is answered by the dispatcher itself.
const Procedure procedures[] = {
    {},
    Row<xdr_servd_SERV_CONNECT_SERVICE, xdr_servd_SERV_CONNECT_SERVICE_RETURN, serv_connect_service_1>(),
    Row<xdr_servd_SERV_CREATE_SERVICE, xdr_servd_SERV_CREATE_SERVICE_RETURN, serv_create_service_1>(),
    Row<xdr_servd_SERV_OPEN_SERVICE, xdr_servd_SERV_OPEN_SERVICE_RETURN, serv_open_service_1>(),
    Row<xdr_servd_SERV_DELETE_SERVICE, xdr_servd_SERV_DELETE_SERVICE_RETURN, serv_delete_service_1>(),
    Row<xdr_servd_SERV_CLOSE_SERVICE, xdr_servd_SERV_CLOSE_SERVICE_RETURN, serv_close_service_1>(),
    Row<xdr_servd_SERV_LOCK_SERVICE, xdr_servd_SERV_LOCK_SERVICE_RETURN, serv_lock_service_1>(),
    Row<xdr_servd_SERV_UNLOCK_SERVICE, xdr_servd_SERV_UNLOCK_SERVICE_RETURN, serv_unlock_service_1>(),
    Row<xdr_servd_SERV_QUERY_LOCK_SERVICE, xdr_servd_SERV_QUERY_LOCK_SERVICE_RETURN, serv_query_lock_service_1>(),
    Row<xdr_servd_SERV_START_SERVICE, xdr_servd_SERV_START_SERVICE_RETURN, serv_start_service_1>(),
    Row<xdr_servd_SERV_CONTROL_SERVICE, xdr_servd_SERV_CONTROL_SERVICE_RETURN, serv_control_service_1>(),
    Row<xdr_servd_SERV_SET_STATUS_SERVICE, xdr_servd_SERV_SET_STATUS_SERVICE_RETURN, serv_set_status_service_1>(),
    Row<xdr_servd_SERV_DUMMY, xdr_servd_SERV_DUMMY_RETURN, serv_dummy_service_1>(),
    Row<xdr_servd_SERV_QUERY_STATUS_SERVICE, xdr_servd_SERV_QUERY_STATUS_SERVICE_RETURN, serv_query_status_service_1>(),
    Row<xdr_servd_SERV_ENUM_STATUS_SERVICE, xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN, serv_enum_status_service_1>(),
    Row<xdr_servd_SERV_GET_DISPLAY_SERVICE, xdr_servd_SERV_GET_DISPLAY_SERVICE_RETURN, serv_get_display_service_1>(),
    Row<xdr_servd_SERV_GET_KEY_SERVICE, xdr_servd_SERV_GET_KEY_SERVICE_RETURN, serv_get_key_service_1>(),
    Row<xdr_servd_SERV_ENUM_DEPEND_SERVICE, xdr_servd_SERV_ENUM_DEPEND_SERVICE_RETURN, serv_enum_depend_service_1>(),
    Row<xdr_servd_SERV_QUERY_CONFIG_SERVICE, xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN, serv_query_config_service_1>(),
    Row<xdr_servd_SERV_CHANGE_CONFIG_SERVICE, xdr_servd_SERV_CHANGE_CONFIG_SERVICE_RETURN,
        serv_change_config_service_1>(),
    Row<xdr_servd_STOP_DAEMON_SERVICE, xdr_servd_STOP_DAEMON_SERVICE_RETURN, serv_stop_daemon_service_1>(),
};
static_assert(std::size(procedures) == STOP_DAEMON_SERVICE + 1);

void AnswerNullProcedure(SVCXPRT *transport) {
    (void)svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_nothing), nullptr);
}

void FreeArguments(SVCXPRT *transport, const Procedure &procedure) {
    if (svc_freeargs(transport, procedure.codeArgument, argumentArea)) return;
    static const char message[] = "unable to free arguments";
    (void)std::fwrite(message, 1, sizeof message - 1, stderr);
    std::exit(1);
}

} // namespace

void servdaemonprog_1(struct svc_req *request, SVCXPRT *transport) {
    if (request->rq_proc >= std::size(procedures)) {
        svcerr_noproc(transport);
        return;
    }
    if (request->rq_proc == NULLPROC) {
        AnswerNullProcedure(transport);
        return;
    }
    const Procedure &procedure = procedures[request->rq_proc];
    std::fill(std::begin(argumentArea), std::end(argumentArea), '\0');
    if (!svc_getargs(transport, procedure.codeArgument, argumentArea)) {
        svcerr_decode(transport);
        return;
    }
    void *result = procedure.handle(argumentArea, request);
    if (result != nullptr && !svc_sendreply(transport, procedure.codeResult, result)) {
        svcerr_systemerr(transport);
    }
    FreeArguments(transport, procedure);
}
