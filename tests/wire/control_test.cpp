// SPDX-License-Identifier: MIT
// Control requests to service processes: the handler itself, over a registry in memory, and processes that answer over
// TCP as each case has it.
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/handlers.h"
#include "servd/servd_svc_proc/startup.h"
#include "tests/support/host.h"
#include "tests/support/procedures.h"
#include "tests/support/service_registry.h"
#include "tv/winsvc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

// What a service process does with the controls that it is sent.
enum Manner {
    accepts = 128, // answers 0 and a status
    refuses = 129, // answers 1234 and a status
    fails = 130,   // answers with an RPC error
    dies = 131,    // ends without an answer
    hangs = 132,   // answers after everybody has lost patience
    garbles = 133, // answers with a record cut short
};

constexpr svd_status_t fromService = {0x20, SERVICE_PAUSED, 1, 21, 22, 23, 24};

// The answer shows what arrived: the context in the exit code of the service, the control in its check point.
service_CONTROL_SERVICE_OUT AnswerTo(const service_CONTROL_SERVICE_IN &request) {
    service_CONTROL_SERVICE_OUT answer = {.status = request.control == refuses ? 1234 : 0, .svcstatus = fromService};
    answer.svcstatus.dwServiceSpecificExitCode = request.servicecontext;
    answer.svcstatus.dwCheckPoint = request.control;
    return answer;
}

void Serve(svc_req *request, SVCXPRT *transport) {
    if (request->rq_proc == NULLPROC) {
        AnswerNullProcedure(transport);
        return;
    }
    service_CONTROL_SERVICE_IN argument = {};
    if (request->rq_proc != SERVICE_PROC_CONTROL ||
        !svc_getargs(transport, RoutineOf<service_CONTROL_SERVICE_IN>(), &argument)) {
        svcerr_noproc(transport);
        return;
    }
    if (argument.control == dies) _exit(0);
    if (argument.control == hangs) SleepMs(60000);
    if (argument.control == fails) {
        svcerr_systemerr(transport);
        return;
    }
    service_CONTROL_SERVICE_OUT answer = AnswerTo(argument);
    const auto code =
        argument.control == garbles ? RoutineOf<service_DUMMY_OUT>() : RoutineOf<service_CONTROL_SERVICE_OUT>();
    (void)svc_sendreply(transport, code, &answer);
}

[[noreturn]] void RunService() {
    const auto program = static_cast<rpcprog_t>(SERVDAEMONPROG) + static_cast<rpcprog_t>(getpid());
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (transport == nullptr || !svc_register(transport, program, 1, Serve, IPPROTO_TCP)) _exit(1);
    svc_run();
    _exit(1);
}

pid_t StartService() {
    const pid_t process = fork();
    if (process == 0) RunService();
    EXPECT_TRUE(WaitForProgram(SERVDAEMONPROG + static_cast<std::uint32_t>(process), 1));
    return process;
}

constexpr svd_status_t reported = {0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 4, 5, 6, 60000};
constexpr std::int32_t context = 4711;

// A service in record 1 that runs in a process of its own.
class ControlledService : public ::testing::Test {
protected:
    void SetUp() override {
        ClearRegistry();
        PutService("alerter", "alerter");
        StartDaemon();
        (void)gethostname(scmhostname, sizeof scmhostname);
        ASSERT_EQ(SetStatus(1, reported), ERROR_SUCCESS);
        process = StartService();
        svcdb[1].processId = process;
        svcdb[1].serviceContext = context;
    }
    void TearDown() override {
        (void)kill(process, SIGKILL);
        (void)waitpid(process, nullptr, 0);
        (void)pmap_unset(static_cast<u_long>(SERVDAEMONPROG) + static_cast<u_long>(process), 1);
    }
    static void ExpectUnchanged(pid_t processId) {
        EXPECT_EQ(svcdb[1].status, reported);
        EXPECT_EQ(svcdb[1].processId, processId);
        EXPECT_EQ(svcdb[1].serviceContext, context);
    }
    pid_t process = 0;
};

svd_status_t AnswerStatus(std::int32_t control) {
    return AnswerTo({.servicecontext = context, .control = control}).svcstatus;
}

TEST_F(ControlledService, an_answer_of_0_is_passed_on_and_its_status_kept) {
    const StatusDeadline before = svcdb[1].statusDeadline;
    const auto reply = Control(1, accepts);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->serviceStatus, AnswerStatus(accepts));
    EXPECT_EQ(svcdb[1].status, AnswerStatus(accepts));
    EXPECT_EQ(svcdb[1].processId, process);
    EXPECT_EQ(svcdb[1].statusDeadline.seconds, before.seconds);
    EXPECT_EQ(svcdb[1].statusDeadline.microseconds, before.microseconds);
}

TEST_F(ControlledService, an_answer_with_a_code_is_passed_on_and_its_status_kept_too) {
    const auto reply = Control(1, refuses);
    EXPECT_EQ(reply->status, 1234);
    EXPECT_EQ(reply->serviceStatus, AnswerStatus(refuses));
    EXPECT_EQ(svcdb[1].status, AnswerStatus(refuses));
}

TEST_F(ControlledService, stop_pause_continue_interrogate_and_own_controls_arrive) {
    for (std::int32_t control : {1, 2, 3, 4, 200, 255}) {
        ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, 3, 0, 0, 0, 0}), ERROR_SUCCESS);
        const auto reply = Control(1, control);
        EXPECT_EQ(reply->status, ERROR_SUCCESS) << control;
        EXPECT_EQ(reply->serviceStatus, AnswerStatus(control)) << control;
    }
}

TEST_F(ControlledService, own_controls_arrive_whatever_the_service_accepts) {
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, 0, 0, 0, 0, 0}), ERROR_SUCCESS);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_INVALID_SERVICE_CONTROL);
    EXPECT_EQ(Control(1, 200)->status, ERROR_SUCCESS);
}

TEST_F(ControlledService, a_starting_service_that_accepts_it_is_told_to_stop) {
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_START_PENDING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}), ERROR_SUCCESS);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SUCCESS);
}

TEST_F(ControlledService, a_process_that_answers_with_an_error_gives_1053_and_nothing_changes) {
    for (std::int32_t control : {fails, garbles}) {
        const auto reply = Control(1, control);
        EXPECT_EQ(reply->status, ERROR_SERVICE_REQUEST_TIMEOUT);
        EXPECT_EQ(reply->serviceStatus.dwCurrentState, SERVICE_RUNNING);
        ExpectUnchanged(process);
    }
}

TEST_F(ControlledService, a_process_that_dies_over_the_request_gives_1062_and_a_dead_service) {
    // Reaped at once, as the daemon's own thread does: a zombie would count as alive.
    const pid_t reaper = process;
    std::thread reaping([reaper] { (void)waitpid(reaper, nullptr, 0); });
    const auto reply = Control(1, dies);
    reaping.join();
    if (reply->status == ERROR_SERVICE_REQUEST_TIMEOUT) { // asked between its end and its reaping
        EXPECT_EQ(Control(1, dies)->status, ERROR_SERVICE_NOT_ACTIVE);
    } else {
        EXPECT_EQ(reply->status, ERROR_SERVICE_NOT_ACTIVE);
    }
    svd_status_t dead = reported;
    dead.dwCurrentState = SERVICE_STOPPED;
    dead.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    dead.dwCheckPoint = dead.dwWaitHint = 0;
    EXPECT_EQ(svcdb[1].status, dead);
    EXPECT_EQ(svcdb[1].processId, 0);
}

TEST_F(ControlledService, a_process_that_is_gone_gives_1062_though_its_last_report_had_no_hint) {
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}), ERROR_SUCCESS);
    (void)kill(process, SIGKILL);
    (void)waitpid(process, nullptr, 0);
    EXPECT_EQ(QueryStatus(1)->serviceStatus.dwCurrentState, SERVICE_RUNNING); // no deadline, nobody noticed
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_EQ(QueryStatus(1)->serviceStatus.dwCurrentState, SERVICE_STOPPED);
}

TEST_F(ControlledService, a_living_process_without_its_program_gives_1053) {
    (void)pmap_unset(static_cast<u_long>(SERVDAEMONPROG) + static_cast<u_long>(process), 1);
    EXPECT_EQ(Control(1, accepts)->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    ExpectUnchanged(process);
}

TEST_F(ControlledService, a_process_that_does_not_answer_gives_1053_after_25_seconds) {
    const std::int64_t begin = MonotonicMs();
    EXPECT_EQ(Control(1, hangs)->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_GE(MonotonicMs() - begin, 24900);
    EXPECT_LE(MonotonicMs() - begin, 28000);
    ExpectUnchanged(process);
}

std::size_t OpenDescriptors() {
    std::size_t open = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        open += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return open;
}

TEST_F(ControlledService, a_thousand_requests_keep_no_descriptors) {
    (void)Control(1, accepts);
    const std::size_t before = OpenDescriptors();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, 3, 0, 0, 0, 0}), ERROR_SUCCESS);
        (void)Control(1, i % 2 == 0 ? accepts : fails);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
