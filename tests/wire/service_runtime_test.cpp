// SPDX-License-Identifier: MIT
// The service side of the service API: the sample service against a scripted daemon, over the wire.
#include "svcapi/pid_file.h"
#include "tests/support/host.h"
#include "tests/support/raw_rpc.h"
#include "tests/support/scripted_daemon.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>

#include <grp.h>
#include <rpc/pmap_clnt.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <functional>
#include <mutex>

namespace {

using namespace raw;
using testing::HasSubstr;
using testing::Not;

constexpr std::int32_t givenIndex = 3;

struct Reports {
    std::mutex guard;
    std::vector<servd_SERV_SET_STATUS_SERVICE> seen;
};
Reports reports;

void NoteReport(const servd_SERV_SET_STATUS_SERVICE &report) {
    const std::lock_guard<std::mutex> locked(reports.guard);
    reports.seen.push_back(report);
}

std::vector<servd_SERV_SET_STATUS_SERVICE> ReportsSeen() {
    const std::lock_guard<std::mutex> locked(reports.guard);
    return reports.seen;
}

bool SawState(std::int32_t state) {
    for (const auto &report : ReportsSeen()) {
        if (report.serviceStatus.dwCurrentState == state) return true;
    }
    return false;
}

// Does something in a process of a user without rights. Returns what that returned.
int AsNobody(const std::function<int()> &act) {
    constexpr uid_t nobody = 65534;
    const pid_t child = fork();
    if (child == 0) {
        const bool switched = setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0;
        _exit(switched ? act() : 99);
    }
    return WEXITSTATUS(WaitForEnd(child));
}

class ServiceRuntime : public testing::Test {
protected:
    void SetUp() override {
        reports.seen.clear();
        ForgetScripts();
        OnCall([](servd_SERV_SET_STATUS_SERVICE &argument) {
            NoteReport(argument);
            return servd_SERV_SET_STATUS_SERVICE_RETURN{0};
        });
        StartScriptedDaemon();
    }
    void TearDown() override {
        EndAllProcesses();
        StopScriptedDaemon();
        (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS); // what a test has entered itself
        SetStarting(false);
    }

    // Launches the sample service as the daemon does, which serves nobody then until it has handed over the start.
    void Launch(std::vector<std::string> options) {
        SetStarting(true);
        log = MakeScratchFolder() + "/log";
        WriteFile(log, "");
        std::vector<std::string> command = {ProgramPath("tvsample"), "--log", log};
        command.insert(command.end(), options.begin(), options.end());
        process = StartProgram({.command = command});
        program = SERVDAEMONPROG + static_cast<std::uint32_t>(process);
        if (!WaitForProgram(program, 1)) throw std::runtime_error("the sample service does not answer");
        client.reset(DialHost("localhost", program, 1));
    }

    service_START_SERVICE_OUT Start(svc_arglist_t *arguments = nullptr, std::int32_t argc = 0) {
        return StartNamed("sample", arguments, argc);
    }

    service_START_SERVICE_OUT StartNamed(const char *name, svc_arglist_t *arguments = nullptr, std::int32_t argc = 0) {
        const service_START_SERVICE_OUT answer =
            *CallForAnswer(client.get(), service_START_SERVICE_IN{Text(name), arguments, argc, givenIndex});
        SetStarting(false);
        return answer;
    }

    // A whole start request for a service, as it goes over the wire.
    std::string StartRequest(const std::string &name) const {
        return AsMessage(Call(1, program, 1, SERVICE_PROC_START, XdrString(name) + Words({0, 0, givenIndex})));
    }

    service_CONTROL_SERVICE_OUT Control(std::int32_t control) {
        return *CallForAnswer(client.get(), service_CONTROL_SERVICE_IN{context, control});
    }

    void StartAndWaitUntilRunning() {
        const service_START_SERVICE_OUT answer = Start();
        ASSERT_EQ(answer.status, 0);
        context = answer.servicecontext;
        ASSERT_TRUE(WaitUntil([] { return SawState(SERVICE_RUNNING); }));
    }

    std::string log;
    pid_t process = 0;
    std::uint32_t program = 0;
    std::int32_t context = 0;
    RpcClient client;
};

TEST_F(ServiceRuntime, a_start_hands_over_its_arguments_behind_the_name) {
    Launch({});
    svc_arglist_t second = {Text("two words"), nullptr};
    svc_arglist_t first = {Text("one"), &second};
    EXPECT_EQ(Start(&first, 2).status, 0);
    ASSERT_TRUE(WaitUntil([] { return SawState(SERVICE_RUNNING); }));
    EXPECT_THAT(ReadFile(log), HasSubstr("start sample uid="));
    EXPECT_THAT(ReadFile(log), HasSubstr("args=one,two words\n"));
}

TEST_F(ServiceRuntime, reports_carry_the_index_that_the_daemon_gave) {
    Launch({});
    StartAndWaitUntilRunning();
    for (const auto &report : ReportsSeen()) {
        EXPECT_EQ(report.handle, givenIndex);
    }
}

TEST_F(ServiceRuntime, a_service_that_never_reports_is_reported_as_starting) {
    Launch({"--silent"});
    ASSERT_EQ(Start().status, 0);
    ASSERT_TRUE(WaitUntil([] { return !ReportsSeen().empty(); }));
    const svd_status_t status = ReportsSeen().front().serviceStatus;
    EXPECT_EQ(status.dwCurrentState, SERVICE_START_PENDING);
    EXPECT_EQ(status.dwWaitHint, 30000);
}

TEST_F(ServiceRuntime, a_second_start_of_a_running_service_is_refused) {
    Launch({});
    StartAndWaitUntilRunning();
    EXPECT_EQ(Start().status, ERROR_SERVICE_ALREADY_RUNNING);
}

// --- who may hand over what ---

TEST_F(ServiceRuntime, a_program_of_one_service_takes_no_second_one) {
    Launch({});
    StartAndWaitUntilRunning();
    EXPECT_EQ(StartNamed("other").status, ERROR_SERVICE_NOT_IN_EXE);
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP).status, 0);
    EXPECT_EQ(WaitForEnd(process), 0);
    EXPECT_THAT(ReadFile(log), Not(HasSubstr("start other")));
}

TEST_F(ServiceRuntime, a_program_of_several_services_takes_those_of_its_table) {
    Launch({"--services", "sample,other"});
    StartAndWaitUntilRunning();
    EXPECT_EQ(StartNamed("third").status, ERROR_SERVICE_NOT_IN_EXE);
    EXPECT_EQ(StartNamed("other").status, 0);
    EXPECT_EQ(StartNamed("other").status, ERROR_SERVICE_ALREADY_RUNNING);
    ASSERT_TRUE(WaitUntil([this] { return ReadFile(log).find("start other") != std::string::npos; }));
}

// Symptom: any local user started what he liked in a service process of root, which then could not be stopped any more.
// Cause: start requests were taken from every process of this machine.
TEST_F(ServiceRuntime, a_start_of_another_user_is_not_taken) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    Launch({"--services", "sample,theirs"});
    const std::uint16_t port = PortOf(program, 1);
    EXPECT_EQ(AsNobody([&] {
                  const Socket connection = ConnectTo(port);
                  return Send(connection, StartRequest("theirs")) && !ReadMessage(connection).empty() ? 1 : 0;
              }),
              0);
    StartAndWaitUntilRunning();
    EXPECT_THAT(ReadFile(log), Not(HasSubstr("start theirs")));
}

// The kernel says of a socket that nobody holds any more that it is root's.
TEST_F(ServiceRuntime, a_start_that_another_user_left_behind_is_not_taken) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    Launch({"--services", "sample,theirs"});
    const std::uint16_t port = PortOf(program, 1);
    kill(process, SIGSTOP); // it finds the request when the connection is closed already
    EXPECT_EQ(AsNobody([&] { return Send(ConnectTo(port), StartRequest("theirs")) ? 0 : 1; }), 0);
    kill(process, SIGCONT);
    StartAndWaitUntilRunning();
    EXPECT_THAT(ReadFile(log), Not(HasSubstr("start theirs")));
}

TEST_F(ServiceRuntime, a_control_of_another_user_is_not_taken) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    Launch({});
    StartAndWaitUntilRunning();
    const std::uint16_t port = PortOf(program, 1);
    const std::string stop = AsMessage(
        Call(1, program, 1, SERVICE_PROC_CONTROL, Words({static_cast<std::uint32_t>(context), SERVICE_CONTROL_STOP})));
    EXPECT_EQ(AsNobody([&] {
                  const Socket connection = ConnectTo(port);
                  return Send(connection, stop) && !ReadMessage(connection).empty() ? 1 : 0;
              }),
              0);
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE).svcstatus.dwCurrentState, SERVICE_PAUSED);
}

TEST_F(ServiceRuntime, the_user_whose_process_launched_it_may_start_it) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    const std::string copy = CopyForAnyUser(ProgramPath("tvsample"));
    EXPECT_EQ(AsNobody([&] {
                  const pid_t service = StartProgram({.command = {copy, "--log", "/dev/null"}});
                  program = SERVDAEMONPROG + static_cast<std::uint32_t>(service);
                  if (!WaitForProgram(program, 1)) return 1;
                  client.reset(DialHost("localhost", program, 1));
                  return Start().status == 0 ? 0 : 2;
              }),
              0);
}

// --- started by nobody ---

TEST_F(ServiceRuntime, a_program_that_no_daemon_starts_goes_on_at_once) {
    const auto millisecondsUntil1063 = [] {
        const std::int64_t before = MonotonicMs();
        const Ended ended = RunAndRead({.command = {ProgramPath("tvsample")}});
        EXPECT_THAT(ended.error, HasSubstr("error 1063"));
        return MonotonicMs() - before;
    };
    EXPECT_LT(millisecondsUntil1063(), 5000) << "with a daemon that has nothing to do";
    StopScriptedDaemon();
    EXPECT_LT(millisecondsUntil1063(), 5000) << "without a daemon";
}

TEST_F(ServiceRuntime, a_program_whose_daemon_has_died_goes_on_at_once) {
    const std::uint16_t port = PortOf(SERVDAEMONPROG, SERVDAEMONVERS);
    Launch({});
    StopScriptedDaemon();
    ASSERT_TRUE(pmap_set(SERVDAEMONPROG, SERVDAEMONVERS, IPPROTO_TCP, port)); // a killed daemon leaves its entry
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(process, 5000)), 1);
}

TEST_F(ServiceRuntime, tvhost_hears_a_termination_signal_before_its_start) {
    SetStarting(true);
    process = StartProgram({.command = {ProgramPath("tvhost")}});
    program = SERVDAEMONPROG + static_cast<std::uint32_t>(process);
    ASSERT_TRUE(WaitForProgram(program, 1));
    kill(process, SIGTERM);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(process, 5000)), 1);
    EXPECT_FALSE(IsRegistered(program, 1));
}

TEST_F(ServiceRuntime, a_start_is_waited_for_as_long_as_the_daemon_answers_nobody) {
    Launch({});
    SleepMs(3000);
    StartAndWaitUntilRunning();
}

TEST_F(ServiceRuntime, a_program_that_goes_on_without_a_start_listens_no_more) {
    Launch({"--foreground"});
    const std::uint16_t port = PortOf(program, 1);
    SetStarting(false);
    ASSERT_TRUE(WaitUntil([this] { return ReadFile(log) == "foreground\n"; }));
    EXPECT_FALSE(IsRegistered(program, 1));
    EXPECT_EQ(ConnectTo(port).descriptor, -1);
}

// --- controls ---

TEST_F(ServiceRuntime, pausing_is_answered_with_the_state_after_it) {
    Launch({});
    StartAndWaitUntilRunning();
    const service_CONTROL_SERVICE_OUT answer = Control(SERVICE_CONTROL_PAUSE);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.svcstatus.dwCurrentState, SERVICE_PAUSED);
    EXPECT_EQ(answer.svcstatus.dwControlsAccepted, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE);
    EXPECT_TRUE(WaitUntil([] { return SawState(SERVICE_PAUSED); }));
}

TEST_F(ServiceRuntime, a_control_answer_holds_no_wait_and_a_report_brings_it) {
    Launch({"--hint-ms", "4200", "--stop-ms", "60000"});
    StartAndWaitUntilRunning();
    const service_CONTROL_SERVICE_OUT answer = Control(SERVICE_CONTROL_STOP);
    EXPECT_EQ(answer.svcstatus.dwCurrentState, SERVICE_STOP_PENDING);
    EXPECT_EQ(answer.svcstatus.dwWaitHint, 0);
    ASSERT_TRUE(WaitUntil([] { return SawState(SERVICE_STOP_PENDING); }));
    EXPECT_EQ(ReportsSeen().back().serviceStatus.dwWaitHint, 5000);
}

TEST_F(ServiceRuntime, a_stopped_service_ends_its_process_and_leaves_no_traces) {
    Launch({"--exit-code", "1066", "--specific", "42"});
    StartAndWaitUntilRunning();
    EXPECT_EQ(ReadPidFile("sample"), process);
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP).status, 0);
    EXPECT_EQ(WaitForEnd(process), 0);
    const svd_status_t last = ReportsSeen().back().serviceStatus;
    EXPECT_EQ(last.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(last.dwWin32ExitCode, ERROR_SERVICE_SPECIFIC_ERROR);
    EXPECT_EQ(last.dwServiceSpecificExitCode, 42);
    EXPECT_FALSE(IsRegistered(program, 1));
    EXPECT_EQ(ReadPidFile("sample"), 0);
}

TEST_F(ServiceRuntime, a_control_with_an_unknown_context_is_refused) {
    Launch({});
    StartAndWaitUntilRunning();
    context = 77;
    EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE).status, ERROR_INVALID_HANDLE);
}

TEST_F(ServiceRuntime, the_dummy_procedure_adds_one) {
    Launch({});
    EXPECT_EQ(CallForAnswer(client.get(), service_DUMMY_IN{41})->dummy, 42);
}

TEST_F(ServiceRuntime, an_answer_never_waits_for_a_report) {
    // The daemon is silent as long as it waits for an answer itself: here it does not answer reports at all.
    StopScriptedDaemon();
    Launch({});
    const std::int64_t before = MonotonicMs();
    const service_START_SERVICE_OUT answer = Start();
    ASSERT_EQ(answer.status, 0);
    context = answer.servicecontext;
    ASSERT_TRUE(WaitUntil([this] { return ReadFile(log).find("state 4") != std::string::npos; }));
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE).svcstatus.dwCurrentState, SERVICE_PAUSED);
    EXPECT_LT(MonotonicMs() - before, 5000);
}

// Symptom: a service that was started again as soon as it had stopped was refused with 1056, or shown as stopped while
// it ran. Cause: the answer to the stop control told of the end, and the reports of the old process came after it.
TEST_F(ServiceRuntime, no_answer_tells_of_the_end_before_the_last_report) {
    static std::atomic<bool> lastHasCome; // static, because the daemon's thread may still look when the test has ended
    static std::atomic<bool> lastIsHeld;
    lastHasCome = false;
    lastIsHeld = true;
    StopScriptedDaemon();
    OnCall([](servd_SERV_SET_STATUS_SERVICE &argument) {
        NoteReport(argument);
        if (argument.serviceStatus.dwCurrentState == SERVICE_STOPPED) {
            lastHasCome = true;
            (void)WaitUntil([] { return !lastIsHeld; });
        }
        return servd_SERV_SET_STATUS_SERVICE_RETURN{0};
    });
    StartScriptedDaemon();
    Launch({});
    StartAndWaitUntilRunning();
    EXPECT_EQ(Control(SERVICE_CONTROL_STOP).svcstatus.dwCurrentState, SERVICE_STOP_PENDING);
    ASSERT_TRUE(WaitUntil([] { return lastHasCome.load(); }));
    const service_CONTROL_SERVICE_OUT answer = Control(SERVICE_CONTROL_INTERROGATE);
    EXPECT_EQ(answer.status, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_EQ(answer.svcstatus.dwCurrentState, SERVICE_STOP_PENDING);
    lastIsHeld = false;
    EXPECT_TRUE(WaitUntil([this] { return HasEnded(process); }));
}

TEST_F(ServiceRuntime, after_a_restart_of_the_daemon_the_index_is_looked_up_by_name) {
    Launch({});
    StartAndWaitUntilRunning();
    StopScriptedDaemon();
    std::string opened;
    OnCall([&](servd_SERV_OPEN_SERVICE &argument) {
        opened = argument.name;
        return servd_SERV_OPEN_SERVICE_RETURN{0, 9};
    });
    OnCall([](servd_SERV_CLOSE_SERVICE &) { return servd_SERV_CLOSE_SERVICE_RETURN{0}; });
    StartScriptedDaemon();
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE).status, 0);
    ASSERT_TRUE(WaitUntil([] { return SawState(SERVICE_PAUSED); }));
    EXPECT_EQ(opened, "sample");
    EXPECT_EQ(ReportsSeen().back().handle, 9);
}

TEST_F(ServiceRuntime, a_report_that_could_not_be_sent_is_sent_once_the_daemon_is_back) {
    Launch({});
    StartAndWaitUntilRunning();
    StopScriptedDaemon();
    OnCall([](servd_SERV_OPEN_SERVICE &) { return servd_SERV_OPEN_SERVICE_RETURN{0, 9}; });
    OnCall([](servd_SERV_CLOSE_SERVICE &) { return servd_SERV_CLOSE_SERVICE_RETURN{0}; });
    EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE).status, 0);
    SleepMs(300);
    StartScriptedDaemon();
    EXPECT_TRUE(WaitUntil([] { return SawState(SERVICE_PAUSED); }));
}

TEST_F(ServiceRuntime, its_sockets_are_closed_on_exec) {
    Launch({});
    StartAndWaitUntilRunning();
    const std::string script = "cd /proc/" + std::to_string(process) +
                               "/fdinfo && for fd in $(grep -L '^flags:.*2......$' *); do readlink ../fd/$fd; done";
    EXPECT_THAT(RunAndRead({.command = {"/bin/sh", "-c", script}}).output, Not(HasSubstr("socket")));
}

} // namespace
