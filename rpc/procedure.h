// SPDX-License-Identifier: MIT
// procedure: remote procedures, each told by its argument record: a call says what is sent, and the number and the
// result follow.
//
// A protocol's header lists its procedures, one line each, and makes a TV_PROCEDURE of every line.
#pragma once

#include "rpc/record.h"

template <std::uint32_t Number, typename ResultRecord>
struct Procedure {
    static constexpr std::uint32_t number = Number;
    using Result = ResultRecord;
};

// The procedure that takes an argument record; no two procedures of ours take the same one.
template <typename Argument>
struct ProcedureOf;
template <typename Argument>
using ResultOf = typename ProcedureOf<Argument>::Result;

#define TV_PROCEDURE(number, Argument, Result)                                                                         \
    template <>                                                                                                        \
    struct ProcedureOf<Argument> : Procedure<number, Result> {};

TV_PROCEDURE(NULLPROC, Nothing, Nothing)

// Calls the procedure over a client handle and decodes its answer into *result, a zeroed record, to be released with
// FreeRecord; a call that fails may leave something to release there too. The argument is only read. Returns the status
// of the call. Blocks for at most the time-out.
template <typename Argument>
clnt_stat CallProcedure(CLIENT *client, const Argument &argument, ResultOf<Argument> *result, timeval timeout) {
    return clnt_call(client, ProcedureOf<Argument>::number, RoutineOf<Argument>(), const_cast<Argument *>(&argument),
                     RoutineOf<ResultOf<Argument>>(), result, timeout);
}

inline void AnswerNullProcedure(SVCXPRT *transport) { (void)svc_sendreply(transport, RoutineOf<Nothing>(), nullptr); }

// Answers a call of the procedure: decodes its argument, sends what serve(argument) returns, a record that borrows all
// that it holds, and releases the argument.
template <typename Argument, typename Serve>
void AnswerProcedure(SVCXPRT *transport, Serve serve) {
    Argument argument = {};
    const RecordGuard<Argument> released(&argument);
    if (!svc_getargs(transport, RoutineOf<Argument>(), reinterpret_cast<char *>(&argument))) {
        svcerr_decode(transport);
        return;
    }
    ResultOf<Argument> result = serve(argument);
    if (!svc_sendreply(transport, RoutineOf<ResultOf<Argument>>(), &result)) svcerr_systemerr(transport);
}
