// SPDX-License-Identifier: MIT
// The cases of the handlers as a client meets them: a real daemon over a real registry, called over TCP; and what
// shows only there.
#include "tests/handlers/suite.h"
#include "tests/support/host.h"
#include "tests/support/real_daemon.h"

namespace {

TEST_F(Handlers, the_age_of_a_lock_is_told_in_seconds) {
    Load({});
    const std::int64_t begin = MonotonicMs();
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    std::int32_t age = 0;
    ASSERT_TRUE(WaitUntil([&age] { return (age = QueryLock()->lockDurationSec) >= 2; }));
    const std::int64_t takenMs = MonotonicMs() - begin;
    EXPECT_GT(takenMs, 1000 * (age - 1));
    EXPECT_LT(takenMs, 1000 * (age + 5));
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(QueryLock()->lockDurationSec, age);
}

TEST_F(Handlers, a_lock_outlives_the_connection_that_took_it) {
    Load({});
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    const RpcClient another = DialServiceDaemon();
    const auto reply = CallForAnswer(another.get(), servd_SERV_LOCK_SERVICE{.lockId = 8, .owner = Text("other")});
    EXPECT_EQ(reply.record.status, ERROR_SERVICE_DATABASE_LOCKED);
    const auto unlocked = CallForAnswer(another.get(), servd_SERV_UNLOCK_SERVICE{.lockId = 7});
    EXPECT_EQ(unlocked.record.status, ERROR_SUCCESS);
}

TEST_F(Handlers, stop_ends_the_daemon_with_status_0_and_without_a_reply) {
    Load({"alerter"});
    EXPECT_EQ(Call(servd_STOP_DAEMON_SERVICE{.unused = 0}), nullptr);
    const int status = WaitForDaemonEnd();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS)); // its entry stays in the port mapper
}

TEST_F(Handlers, a_number_above_20_is_no_procedure_and_the_null_procedure_answers_nothing) {
    Load({});
    const xdrproc_t nothing = RoutineOf<Nothing>();
    for (const std::uint32_t procedure : {21u, 22u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(clnt_call(DaemonConnection(), procedure, nothing, nullptr, nothing, nullptr, (timeval{25, 0})),
                  RPC_PROCUNAVAIL)
            << procedure;
    }
    EXPECT_EQ(clnt_call(DaemonConnection(), NULLPROC, nothing, nullptr, nothing, nullptr, (timeval{25, 0})),
              RPC_SUCCESS);
}

} // namespace
