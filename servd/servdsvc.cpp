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
struct Row {
    xdrproc_t codeArgument;
    xdrproc_t codeResult;
    void *(*handle)(void *argument, svc_req *request);
};

// Holds the argument record of the request in hand; the create and change records are the largest.
alignas(std::max_align_t) char argumentArea[std::max(sizeof(servd_SERV_CREATE_SERVICE),
                                                     sizeof(servd_SERV_CHANGE_CONFIG_SERVICE))];

template <typename Argument, ReplyTo<Argument> *(*Handler)(Argument *, svc_req *)>
Row RowOf() {
    static_assert(sizeof(Argument) <= sizeof argumentArea);
    return {RoutineOf<Argument>(), RoutineOf<ReplyTo<Argument>>(), [](void *argument, svc_req *request) -> void * {
                return Handler(static_cast<Argument *>(argument), request);
            }};
}

// The procedure's number is its place; the null procedure is answered by the dispatcher itself.
#define ROW(number, name, handler, Record) RowOf<Record, handler>(),
const Row procedures[] = {{}, SERVD_PROCEDURES(ROW)};

#define NUMBER(number, name, handler, Record) number,
constexpr std::uint32_t numbers[] = {NULLPROC, SERVD_PROCEDURES(NUMBER)};
static_assert(std::adjacent_find(std::begin(numbers), std::end(numbers),
                                 [](std::uint32_t a, std::uint32_t b) { return a + 1 != b; }) == std::end(numbers));

void FreeArguments(SVCXPRT *transport, const Row &procedure) {
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
    const Row &procedure = procedures[request->rq_proc];
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
