// SPDX-License-Identifier: MIT
// The dispatcher by itself: a transport of the test's own tells what was asked of it, and fails on request.
#include "servd/servdsvc.h"
#include "tests/support/memory_registry.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::IsEmpty;

using Events = std::vector<std::string>;

// What the transport was asked to do, in order, and what it is to refuse.
Events events;
bool decodes, sends, frees;

bool IsZero(const char *bytes, std::size_t count) {
    return std::all_of(bytes, bytes + count, [](char byte) { return byte == 0; });
}

// Decodes the argument of the liveness test, the only one that these cases send: a word, 41.
bool_t GetArguments(SVCXPRT * /*transport*/, xdrproc_t /*code*/, void *area) {
    EXPECT_TRUE(IsZero(static_cast<char *>(area), sizeof(servd_SERV_CHANGE_CONFIG_SERVICE)));
    events.emplace_back("decode");
    static_cast<servd_SERV_DUMMY *>(area)->dummy = 41;
    return decodes ? TRUE : FALSE;
}

bool_t FreeArguments(SVCXPRT * /*transport*/, xdrproc_t /*code*/, void *area) {
    EXPECT_EQ(static_cast<servd_SERV_DUMMY *>(area)->dummy, 41);
    events.emplace_back("free");
    return frees ? TRUE : FALSE;
}

// The status of an accepted call and, where it is success, the result's words.
bool_t Reply(SVCXPRT * /*transport*/, rpc_msg *message) {
    const accepted_reply &reply = message->acpted_rply;
    std::string text = "reply " + std::to_string(reply.ar_stat);
    if (reply.ar_stat == SUCCESS) {
        std::uint32_t words[8] = {};
        XDR xdrs;
        xdrmem_create(&xdrs, reinterpret_cast<char *>(words), sizeof words, XDR_ENCODE);
        EXPECT_TRUE(reply.ar_results.proc(&xdrs, reply.ar_results.where));
        for (std::size_t i = 0; i < xdr_getpos(&xdrs) / sizeof *words; ++i) {
            text += ' ' + std::to_string(ntohl(words[i]));
        }
    }
    events.push_back(text);
    return reply.ar_stat != SUCCESS || sends ? TRUE : FALSE;
}

std::remove_pointer_t<decltype(SVCXPRT::xp_ops)> operations = {
    .xp_recv = nullptr,
    .xp_stat = nullptr,
    .xp_getargs = GetArguments,
    .xp_reply = Reply,
    .xp_freeargs = FreeArguments,
    .xp_destroy = nullptr,
};

struct Dispatcher : MemoryRegistryTest {
    Dispatcher() { decodes = sends = frees = true; }

    static Events Dispatch(std::uint32_t procedure) {
        events.clear();
        SVCXPRT transport = {};
        transport.xp_ops = &operations;
        svc_req request = {};
        request.rq_proc = procedure;
        request.rq_xprt = &transport;
        servdaemonprog_1(&request, &transport);
        return events;
    }
};

std::string Replied(accept_stat status) { return "reply " + std::to_string(status); }

TEST_F(Dispatcher, decodes_answers_and_frees_in_this_order) {
    EXPECT_THAT(Dispatch(DUMMY_SERVICE), ElementsAre("decode", "reply 0 42", "free"));
}

TEST_F(Dispatcher, a_number_above_20_is_no_procedure) {
    for (const std::uint32_t procedure : {21u, 22u, 255u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_THAT(Dispatch(procedure), ElementsAre(Replied(PROC_UNAVAIL))) << procedure;
    }
}

TEST_F(Dispatcher, the_null_procedure_is_answered_at_once_with_nothing) {
    EXPECT_THAT(Dispatch(NULLPROC), ElementsAre(Replied(SUCCESS)));
}

TEST_F(Dispatcher, arguments_that_do_not_decode_reach_no_handler_and_are_not_freed) {
    decodes = false;
    EXPECT_THAT(Dispatch(DUMMY_SERVICE), ElementsAre("decode", Replied(GARBAGE_ARGS)));
}

TEST_F(Dispatcher, the_argument_area_is_zeroed_for_each_request) {
    (void)Dispatch(DUMMY_SERVICE);
    (void)Dispatch(DUMMY_SERVICE); // GetArguments finds no 41 of the first
}

TEST_F(Dispatcher, a_reply_that_cannot_be_sent_becomes_a_system_error) {
    sends = false;
    EXPECT_THAT(Dispatch(DUMMY_SERVICE), ElementsAre("decode", "reply 0 42", Replied(SYSTEM_ERR), "free"));
}

TEST_F(Dispatcher, arguments_that_cannot_be_freed_end_the_process_with_1) {
    frees = false;
    EXPECT_EXIT((void)Dispatch(DUMMY_SERVICE), ExitedWithCode(1), "^unable to free arguments$");
}

} // namespace
