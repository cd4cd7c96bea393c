// SPDX-License-Identifier: MIT
// What tvhost does with programs that crash, go into the background, are slow, write much or have been there before.
#include "svcapi/log_place.h"
#include "tests/support/tvhost_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"
#include "tvhost/failure_actions.h"
#include "tvhost/process_tree.h"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <filesystem>
#include <fstream>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr std::int64_t toleranceMs = 1500; // of a busy machine

struct TvhostLife : TvhostWorld {
    const std::string file = folder + "/" + name; // what a program and the test meet at

    // Creates a service of a shell script, with parameters of tvhost.
    void CreateShell(const std::string &script, const std::vector<std::string> &settings = {}) {
        std::vector<std::string> create = {"create", name};
        for (const std::string &setting : settings) {
            create.insert(create.end(), {"--set", setting});
        }
        create.insert(create.end(), {"--", "/bin/bash", "-c", script});
        Do(create);
    }
    // A part of a script: a program in a session of its own, whose command line the test knows again.
    std::string Detached(const std::string &program) const {
        return "setsid -f bash -c 'exec -a " + file + " " + program + "'; ";
    }
    bool HasLines(std::size_t count) {
        const std::string text = ReadWhatIsThere(file);
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= count;
    }
    pid_t PidIn(const std::string &path) {
        if (!WaitUntil([&] { return !ReadWhatIsThere(path).empty(); })) return 0;
        return static_cast<pid_t>(std::stol(ReadWhatIsThere(path)));
    }
    // The command lines of living processes in which a text occurs.
    static std::vector<std::string> ProcessesThatMention(const std::string &text) {
        std::vector<std::string> found;
        for (const TreeProcess &process : DescendantsOf(1)) {
            const std::string line = ReadWhatIsThere("/proc/" + std::to_string(process.process) + "/cmdline");
            if (!process.hasEnded && line.find(text) != std::string::npos) found.push_back(line);
        }
        return found;
    }
};

// --- restart ---

TEST_F(TvhostLife, a_program_that_crashes_is_started_again_after_a_delay_that_doubles) {
    CreateShell("date +%s%N >>" + file + "; kill -SEGV $$",
                {"AppRestart=on-failure", "AppRestartDelay=400", "AppRestartBurst=3"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return StateText() == "stopped"; }, 30000));
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_PROCESS_ABORTED);
    std::ifstream times(file);
    std::vector<std::int64_t> ms;
    for (std::int64_t ns = 0; times >> ns;) {
        ms.push_back(ns / 1'000'000);
    }
    ASSERT_EQ(ms.size(), 4u) << "one start and three more";
    for (std::size_t i = 1; i < ms.size(); ++i) {
        const std::int64_t wantedMs = 400LL << (i - 1);
        EXPECT_GE(ms[i] - ms[i - 1], wantedMs - 5);
        EXPECT_LE(ms[i] - ms[i - 1], wantedMs + toleranceMs);
    }
    const HostState state = StateFile();
    EXPECT_EQ(state.restarts, 3u);
    EXPECT_EQ(state.phase, "stopped");
    EXPECT_THAT(state.reason, AllOf(HasSubstr("ended by signal 11"), HasSubstr("started 3 times again")));
    EXPECT_THAT(LogText(), HasSubstr("it is started again in 800 ms"));
}

TEST_F(TvhostLife, while_a_restart_is_waited_for_the_service_is_not_running_and_can_be_stopped) {
    CreateShell("echo >>" + file + "; exit 3", {"AppRestart=always", "AppRestartDelay=60000"});
    (void)Tvsc({"start", "--no-wait", name});
    ASSERT_TRUE(WaitUntil([this] { return StateFile().phase == "waiting"; }));
    EXPECT_TRUE(AwaitState("start_pending"));
    EXPECT_GT(StateFile().nextAttemptMs, EpochMs() + 50'000);
    EXPECT_THAT(StateFile().reason, HasSubstr("ended with status 3"));
    const std::int64_t before = MonotonicMs();
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_LT(MonotonicMs() - before, 10000);
    EXPECT_FALSE(HasLines(2));
}

TEST_F(TvhostLife, a_good_run_makes_the_delay_short_again) {
    CreateShell("date +%s%N >>" + file + "; sleep 0.6; exit 1",
                {"AppRestart=on-failure", "AppRestartDelay=100", "AppRestartReset=500", "AppRestartBurst=1"});
    (void)Tvsc({"start", name});
    EXPECT_TRUE(WaitUntil([this] { return HasLines(5); })) << "no burst, for each run is a good one";
    EXPECT_NE(StateText(), "stopped");
}

TEST_F(TvhostLife, a_good_end_is_no_failure) {
    CreateShell("echo >>" + file, {"AppRestart=on-failure", "AppRestartDelay=10"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return StateText() == "stopped" && HasLines(1); }));
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
    SleepMs(300);
    EXPECT_FALSE(HasLines(2));
}

TEST_F(TvhostLife, a_program_that_ends_well_at_once_is_started_again_where_always_is_asked_for) {
    CreateShell("echo >>" + file, {"AppRestart=always", "AppRestartDelay=10", "AppRestartBurst=3"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_TRUE(HasLines(4));
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_PROCESS_ABORTED);
}

TEST_F(TvhostLife, the_failure_actions_of_the_key_mean_the_same) {
    CreateShell("date +%s%N >>" + file + "; exit 1");
    // Never reset; twice restarted, after 50 and 700 ms; then nothing.
    WriteKey(servicesKey + "\\" + name, {{"FailureActions", REG_BINARY,
                                          Dword(0xFFFFFFFF) + Dword(0) + Dword(0) + Dword(3) + Dword(20) + Dword(1) +
                                              Dword(50) + Dword(1) + Dword(700) + Dword(0) + Dword(0)}});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return StateText() == "stopped" && HasLines(3); }));
    EXPECT_FALSE(HasLines(4));
    EXPECT_EQ(Status().at("exit").at("service_specific"), 1);
    EXPECT_EQ(StateFile().restarts, 2u);
}

TEST_F(TvhostLife, failure_actions_set_by_change_service_config_2_are_read_and_done) {
    CreateShell("date +%s%N >>" + file + "; exit 1");
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    const SC_HANDLE service = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
    SC_ACTION given[] = {{SC_ACTION_RESTART, 50}, {SC_ACTION_RUN_COMMAND, 7}};
    std::string command = "/usr/bin/touch " + file + "2";
    SERVICE_FAILURE_ACTIONSA info = {86400, nullptr, command.data(), 2, given};
    ASSERT_TRUE(ChangeServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS, &info)) << GetLastError();
    (void)CloseServiceHandle(service);
    (void)CloseServiceHandle(manager);

    FailureActions read;
    std::string problem;
    ASSERT_EQ(ReadFailureActions(name, &read, &problem), DWORD{0}) << problem;
    EXPECT_EQ(read.resetSec, 86400u);
    EXPECT_EQ(read.command, command);
    ASSERT_EQ(read.actions.size(), 2u);
    EXPECT_EQ(read.actions[0].kind, FailureActionKind::restart);
    EXPECT_EQ(read.actions[0].delayMs, 50u);
    EXPECT_EQ(read.actions[1].kind, FailureActionKind::runCommand);
    EXPECT_EQ(read.actions[1].delayMs, 7u);
    (void)Tvsc({"start", name});
    EXPECT_TRUE(WaitUntil([this] { return fs::exists(file + "2"); }));
    EXPECT_TRUE(HasLines(2));
}

TEST_F(TvhostLife, the_failure_command_of_the_key_is_run) {
    CreateShell("exit 1");
    WriteKey(servicesKey + "\\" + name, {{"FailureActions", REG_BINARY,
                                          Dword(0) + Dword(0) + Dword(0) + Dword(1) + Dword(20) + Dword(3) + Dword(0)},
                                         {"FailureCommand", REG_SZ, Sz("/usr/bin/touch " + file)}});
    (void)Tvsc({"start", name});
    EXPECT_TRUE(WaitUntil([this] { return fs::exists(file); }));
    EXPECT_TRUE(AwaitState("stopped"));
}

TEST_F(TvhostLife, failure_actions_that_are_none_are_named) {
    CreateShell("true");
    WriteKey(servicesKey + "\\" + name, {{"FailureActions", REG_BINARY, "abc"}});
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_INVALID_DATA);
    EXPECT_THAT(LogText(), HasSubstr("FailureActions: 3 bytes are none"));
}

TEST_F(TvhostLife, what_cannot_be_started_at_all_is_not_tried_again) {
    CreateShell("true", {"AppRestart=always", "AppRestartDelay=10", "AppDirectory=/no/such"});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("3 ERROR_PATH_NOT_FOUND"));
    EXPECT_EQ(StateFile().restarts, 0u);
    EXPECT_THAT(LogText(), HasSubstr("not started: /no/such: No such file or directory"));
}

// --- the tree ---

TEST_F(TvhostLife, whatever_went_into_other_sessions_ends_with_the_service) {
    CreateShell(Detached("sleep 1000") + "(setsid bash -c 'trap \"\" TERM; sleep 1001; sleep 1002 # " + file +
                "' &) ; exec sleep 1003");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return ProcessesThatMention(file).size() >= 2; }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_THAT(ProcessesThatMention(file), IsEmpty());
}

TEST_F(TvhostLife, orphans_end_with_a_program_that_ends_by_itself) {
    CreateShell("(setsid sleep 1000 # " + file + "\n) & disown; sleep 0.3; exit 0");
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_THAT(ProcessesThatMention(file), IsEmpty());
    EXPECT_THAT(LogText(), AllOf(HasSubstr("left processes behind, which are ended"), HasSubstr("AppType forking")));
}

TEST_F(TvhostLife, a_pause_covers_the_tree) {
    CreateShell("setsid -f bash -c 'while :; do echo >>" + file + "; sleep 0.05; done'; exec sleep 1000");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return HasLines(2); }));
    EXPECT_EQ(Do({"pause", name}), name + ": paused\n");
    const std::string before = ReadFile(file);
    SleepMs(300);
    EXPECT_EQ(ReadFile(file), before);
    EXPECT_EQ(Do({"continue", name}), name + ": running\n");
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(file).size() > before.size(); }));
    Do({"pause", name});
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvhostLife, a_program_that_goes_into_the_background_is_the_service) {
    CreateShell(Detached("sleep 1000") + "exit 0", {"AppType=forking"});
    Do({"start", name});
    const pid_t program = StateFile().program;
    ASSERT_GT(program, 1);
    EXPECT_TRUE(WaitUntil([&] { return NameOfProcess(program) == "sleep"; }));
    kill(program, SIGKILL);
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_EQ(Status().at("exit").at("service_specific"), 128 + SIGKILL);
}

TEST_F(TvhostLife, a_pid_file_tells_which_process_is_the_service) {
    CreateShell(Detached("sleep 1000") + "setsid -f bash -c 'sleep 0.3; echo $$ >" + file + ".pid; exec sleep 1001 #" +
                    file + "'; exit 0",
                {"AppType=forking", "AppPidFile=" + file + ".pid"});
    WriteFile(file + ".pid", "1\n"); // of somebody else
    Do({"start", name});
    EXPECT_EQ(StateFile().program, PidIn(file + ".pid"));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvhostLife, a_start_that_leaves_no_process_has_failed) {
    CreateShell("exit 0", {"AppType=forking"});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("1067"));
    EXPECT_THAT(StateFile().reason, HasSubstr("left no process"));
}

// --- readiness ---

// bash has no datagrams; this sends one as the protocol wants it.
std::string Notify(const std::string &text) {
    return "python3 -c 'import os,socket;a=os.environ[\"NOTIFY_SOCKET\"];a=\"\\0\"+a[1:];"
           "socket.socket(socket.AF_UNIX,socket.SOCK_DGRAM).sendto(b\"" +
           text + "\",a)'; ";
}

TEST_F(TvhostLife, a_program_tells_when_it_is_ready) {
    if (access("/usr/bin/python3", X_OK) != 0) GTEST_SKIP() << "needs python3";
    CreateShell("until [ -e " + file + " ]; do sleep 0.05; done; " +
                    Notify("STATUS=warming up\\nEXTEND_TIMEOUT_USEC=90000000") + "until [ -e " + file +
                    "2 ]; do sleep 0.05; done; " + Notify("READY=1\\nSTATUS=all is well") + "exec sleep 1000",
                {"AppType=notify", "AppStartTimeout=30000"});
    Do({"start", "--no-wait", name});
    EXPECT_EQ(StateText(), "start_pending");
    WriteFile(file, "");
    ASSERT_TRUE(WaitUntil([this] { return StateFile().says == "warming up"; }));
    EXPECT_TRUE(WaitUntil([this] { return Status().at("check_point") > 0; }));
    EXPECT_GT(Status().at("wait_hint_ms"), 80000);
    WriteFile(file + "2", "");
    EXPECT_TRUE(AwaitState("running"));
    EXPECT_TRUE(WaitUntil([this] { return StateFile().says == "all is well"; }));
}

TEST_F(TvhostLife, a_program_that_never_becomes_ready_is_ended) {
    CreateShell("exec sleep 1000", {"AppType=notify", "AppStartTimeout=700"});
    const std::int64_t before = MonotonicMs();
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("1053"));
    EXPECT_GE(MonotonicMs() - before, 700);
    EXPECT_THAT(StateFile().reason, HasSubstr("not ready within 700 ms"));
}

TEST_F(TvhostLife, a_delay_passes_before_a_program_counts_as_ready) {
    CreateShell("exec sleep 1000", {"AppReadyDelay=800"});
    const std::int64_t before = MonotonicMs();
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_GE(MonotonicMs() - before, 800);
    EXPECT_LT(MonotonicMs() - before, 800 + 2 * toleranceMs);
}

TEST_F(TvhostLife, a_program_that_ends_before_it_is_ready_has_failed) {
    CreateShell("exit 0", {"AppReadyDelay=5000"});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("1067"));
    EXPECT_THAT(StateFile().reason, HasSubstr("before it was ready"));
}

TEST_F(TvhostLife, a_command_tells_when_it_is_ready) {
    CreateShell("sleep 0.7; touch " + file + "; exec sleep 1000", {"AppReadyCommand=/usr/bin/test -e " + file});
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_TRUE(fs::exists(file));
}

// Longer than the daemon waits for any one answer, where all trials are asked for.
TEST_F(TvhostLife, a_program_that_needs_long_to_become_ready_is_waited_for) {
    const int seconds = std::getenv("TV_LONG") != nullptr ? 60 : 4;
    CreateShell("sleep " + std::to_string(seconds) + "; " + Notify("READY=1") + "exec sleep 1000", {"AppType=notify"});
    const std::int64_t before = MonotonicMs();
    Do({"start", "--no-wait", name}); // it would wait for a minute itself
    EXPECT_TRUE(AwaitState("running", patienceMs + seconds * 1000));
    EXPECT_GE(MonotonicMs() - before, seconds * 1000);
    EXPECT_LT(MonotonicMs() - before, seconds * 1000 + 10 * toleranceMs);
    EXPECT_THAT(Status().at("program").at("restarts"), 0);
}

// Symptom: a program that was not ready after a minute was taken for dead by the daemon at the next look, long before
// its own time was up, and could not be stopped any more while it ran on. Cause: tvhost had announced a minute.
TEST_F(TvhostLife, a_start_is_announced_for_as_long_as_it_may_take) {
    CreateShell("exec sleep 1000", {"AppType=notify", "AppStartTimeout=200000", "AppStopTimeout=5000"});
    Do({"start", "--no-wait", name});
    ASSERT_TRUE(WaitUntil([this] { return StateFile().phase == "starting"; }));
    EXPECT_TRUE(WaitUntil([this] { return Status().at("wait_hint_ms") > 205'000; }));
    EXPECT_EQ(StateText(), "start_pending");
    const pid_t program = StateFile().program;
    EXPECT_EQ(Do({"stop", "--force", name}), name + ": stopped\n");
    EXPECT_FALSE(Lives(program));
}

// The same in real time: tvsc gives up first, and the service can still be stopped.
TEST_F(TvhostLife, a_start_that_is_not_waited_for_any_more_can_be_stopped) {
    if (std::getenv("TV_LONG") == nullptr) GTEST_SKIP() << "takes more than a minute; TV_LONG asks for it";
    CreateShell("exec sleep 1000", {"AppType=notify"});
    EXPECT_EQ(Tvsc({"start", "--timeout", "65s", name}).status, 151);
    EXPECT_EQ(StateText(), "start_pending");
    const pid_t program = StateFile().program;
    EXPECT_TRUE(Lives(program));
    EXPECT_EQ(Do({"stop", "--force", name}), name + ": stopped\n");
    EXPECT_FALSE(Lives(program));
}

TEST_F(TvhostLife, a_stop_is_heard_while_it_is_not_ready) {
    CreateShell("exec sleep 1000", {"AppType=notify"});
    Do({"start", "--no-wait", name});
    ASSERT_TRUE(WaitUntil([this] { return StateFile().program != 0; }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

// --- stop and reload ---

TEST_F(TvhostLife, the_stop_signal_is_chosen) {
    CreateShell("trap 'echo quit >" + file + "; exit 0' QUIT; trap '' TERM; echo ready >" + file +
                    "; while :; do sleep 0.05; done",
                {"AppStopSignal=QUIT"});
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return ReadWhatIsThere(file) == "ready\n"; }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(ReadFile(file), "quit\n");
}

TEST_F(TvhostLife, an_unknown_signal_is_named) {
    CreateShell("true", {"AppStopSignal=STOPIT"});
    (void)Tvsc({"start", name});
    EXPECT_THAT(LogText(), HasSubstr("AppStopSignal: no such signal"));
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_INVALID_DATA);
}

TEST_F(TvhostLife, a_command_stops_the_program) {
    CreateShell("trap '' TERM; echo $$ >" + file + "; until [ -e " + file + ".stop ]; do sleep 0.05; done; exit 0",
                {"AppStopCommand=/bin/sh -c 'echo $MAINPID >" + file + "; mv " + file + " " + file + ".stop'"});
    Do({"start", name});
    const pid_t program = PidIn(file);
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_EQ(ReadFile(file + ".stop"), std::to_string(program) + "\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

TEST_F(TvhostLife, a_stop_command_that_fails_leaves_it_to_the_signal) {
    CreateShell("exec sleep 1000", {"AppStopCommand=/bin/false"});
    Do({"start", name});
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_THAT(LogText(), HasSubstr("stop command ended with status 1: the stop signal is sent instead"));
}

TEST_F(TvhostLife, a_reload_is_a_signal_or_a_command) {
    CreateShell("trap 'echo hup >>" + file + "' HUP; touch " + file + ".up; while :; do sleep 0.05; done");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return fs::exists(file + ".up"); }));
    Do({"control", name, "128"});
    EXPECT_TRUE(WaitUntil([this] { return ReadWhatIsThere(file) == "hup\n"; }));
    Do({"stop", name});
    WriteKey(servicesKey + "\\" + name + "\\Parameters",
             {{"AppReloadCommand", REG_SZ, Sz("/bin/sh -c 'echo command $MAINPID >" + file + "'")}});
    Do({"start", name});
    Do({"control", name, "128"});
    EXPECT_TRUE(
        WaitUntil([this] { return ReadWhatIsThere(file) == "command " + std::to_string(StateFile().program) + "\n"; }));
    EXPECT_EQ(StateText(), "running");
}

// --- the log ---

TEST_F(TvhostLife, what_a_program_writes_stands_in_its_log) {
    CreateShell("echo out; echo err >&2; printf 'no end'; exit 4");
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_THAT(LogText(), AllOf(HasSubstr("out\n"), HasSubstr("err\n"), HasSubstr("no end\n"),
                                 HasSubstr("tvhost: ended with status 4\n")));
}

TEST_F(TvhostLife, lines_are_stamped_where_that_is_asked_for) {
    CreateShell("echo one; echo two", {"AppLogTimestamps=1"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_THAT(LogText(), testing::MatchesRegex("[-0-9]+T[:0-9.]+Z one\n[-0-9]+T[:0-9.]+Z two\n"));
}

// Writes numbered lines as fast as it can.
std::string Writer(std::size_t lines) {
    return "exec /usr/bin/seq -f 'a line of some length with the number %.0f' 1 " + std::to_string(lines);
}

// The numbers of all lines of a log, the oldest files first; a line that is no whole one counts as 0.
struct LinesFound {
    std::size_t count = 0, broken = 0, files = 0;
    std::uint64_t largestFile = 0;
    bool inOrder = true;
};
LinesFound ReadLines(const std::string &service, unsigned files) {
    LinesFound found;
    const std::string folder = FindLogFolder(service);
    std::size_t next = 1;
    for (unsigned number = files + 1; number-- > 0;) {
        const std::string path = LogFilePath(folder, service, number);
        if (!fs::exists(path)) continue;
        ++found.files;
        found.largestFile = std::max<std::uint64_t>(found.largestFile, fs::file_size(path));
        std::ifstream lines(path);
        for (std::string line; std::getline(lines, line);) {
            constexpr std::string_view start = "a line of some length with the number ";
            if (line.starts_with("tvhost: ")) continue;
            if (!line.starts_with(start)) {
                ++found.broken;
                continue;
            }
            const std::size_t value = std::stoul(line.substr(start.size()));
            found.inOrder = found.inOrder && value == next;
            next = value + 1;
            ++found.count;
        }
    }
    return found;
}

TEST_F(TvhostLife, no_line_is_lost_or_parted_at_full_speed) {
    const bool isLong = std::getenv("TV_LONG") != nullptr;
    const std::size_t lines = isLong ? 23'000'000 : 1'000'000; // 1 GB, or 45 MB
    const unsigned files = isLong ? 300 : 30;
    CreateShell(Writer(lines), {"AppRotateBytes=4000000", "AppRotateFiles=" + std::to_string(files)});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped", 300'000));
    const LinesFound found = ReadLines(name, files);
    EXPECT_EQ(found.count, lines);
    EXPECT_EQ(found.broken, 0u);
    EXPECT_TRUE(found.inOrder);
    EXPECT_GT(found.files, 5u);
    EXPECT_LE(found.largestFile, 4'000'000u);
}

TEST_F(TvhostLife, only_so_many_older_logs_are_kept) {
    CreateShell(Writer(100'000), {"AppRotateBytes=100000", "AppRotateFiles=2"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    const LinesFound found = ReadLines(name, 100);
    EXPECT_EQ(found.files, 3u);
    EXPECT_TRUE(found.broken == 0 && found.count > 0 && found.count < 10'000);
}

TEST_F(TvhostLife, a_program_under_an_account_has_a_log_of_its_own) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    Do({"create", name, "--user", "nobody", "--set", "AppRotateBytes=100", "--", "/usr/bin/seq", "1", "100"});
    struct stat found = {};
    ASSERT_EQ(stat(("/var/log/tv/" + name + ".d").c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 65534u);
    ASSERT_EQ(stat("/var/log/tv", &found), 0);
    EXPECT_EQ(found.st_uid, 0u);
    EXPECT_EQ(found.st_mode & 07777, 0755u);
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    EXPECT_THAT(LogText(), HasSubstr("100\n"));
    EXPECT_TRUE(fs::exists("/var/log/tv/" + name + ".d/" + name + ".log.1"));
    EXPECT_EQ(StateFile().phase, "stopped") << "its state file was made for it, too";
    // What nobody has written stays nobody's.
    Do({"config", name, "--user", "daemon"});
    ASSERT_EQ(stat(("/var/log/tv/" + name + ".d").c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 1u);
    EXPECT_TRUE(fs::exists("/var/log/tv/" + name + ".d.65534/" + name + ".log"));
    Do({"config", name, "--user", "nobody"});
    EXPECT_THAT(LogText(), HasSubstr("100\n"));
}

TEST_F(TvhostLife, a_closed_output_costs_nothing) {
    CreateShell("exec >&- 2>&- <&-; exec sleep 1000");
    Do({"start", name});
    EXPECT_EQ(StateText(), "running");
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvhostLife, the_journal_takes_the_lines_where_there_is_one) {
    fs::create_directories("/run/systemd/journal");
    int journal = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const DescriptorGuard closed(&journal);
    sockaddr_un address = {AF_UNIX, "/run/systemd/journal/socket"};
    ASSERT_EQ(bind(journal, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const timeval patience = {20, 0};
    ASSERT_EQ(setsockopt(journal, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    CreateShell("echo hello; exec sleep 1000");
    (void)Tvsc({"start", "--no-wait", name});
    char datagram[4096] = {};
    const ssize_t bytes = recv(journal, datagram, sizeof datagram, 0);
    fs::remove_all("/run/systemd");
    ASSERT_GT(bytes, 0);
    const std::string text(datagram, static_cast<std::size_t>(bytes));
    EXPECT_THAT(text, AllOf(HasSubstr("SYSLOG_IDENTIFIER\n"), HasSubstr(name), HasSubstr("PRIORITY\n"),
                            HasSubstr(std::string("MESSAGE\n\5\0\0\0\0\0\0\0hello\n", 22))));
    EXPECT_TRUE(WaitUntil([this] { return StateFile().log == "journal"; }));
}

// --- predecessors ---

TEST_F(TvhostLife, a_second_start_beside_a_living_one_is_refused) {
    CreateShell("echo >>" + file + "; exec sleep 1000");
    Do({"start", name});
    const pid_t first = StateFile().program;
    Do({"reset", name}); // as a new daemon, this one does not know of it any more
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("1056"));
    EXPECT_THAT(LogText(), HasSubstr("an earlier start of it still runs"));
    EXPECT_TRUE(Lives(first));
    EXPECT_FALSE(HasLines(2));
    EXPECT_EQ(StateFile().program, first) << "the state is the living one's";
    kill(StateFile().host, SIGTERM);
    EXPECT_TRUE(WaitUntil([&] { return !Lives(first); }));
}

TEST_F(TvhostLife, a_second_start_replaces_the_living_one_where_that_is_asked_for) {
    CreateShell("trap '' TERM; echo >>" + file + "; while :; do sleep 0.05; done",
                {"AppOnPredecessor=replace", "AppStopTimeout=300"});
    Do({"start", name});
    const pid_t first = StateFile().program;
    Do({"reset", name});
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_FALSE(Lives(first));
    EXPECT_NE(StateFile().program, first);
    EXPECT_TRUE(WaitUntil([this] { return HasLines(2); }));
}

// Symptom: once in a while a start that replaced an earlier one failed with "stopped again". Cause: the last report of
// the earlier one reached the daemon before the new one had become ready, and was taken for the new one's.
TEST_F(TvhostLife, the_last_report_of_a_replaced_start_is_not_taken_for_the_new_one_s) {
    CreateShell("exec sleep 1000", {"AppOnPredecessor=replace", "AppReadyDelay=1500"});
    Do({"start", name});
    const HostState first = StateFile();
    Do({"reset", name});
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_FALSE(Lives(first.host));
    EXPECT_EQ(ProcessOf(name), StateFile().host) << "the earlier one does not take the new one's hint along";
}

TEST_F(TvhostLife, what_outlives_a_killed_tvhost_is_found_and_replaced) {
    CreateShell(Detached("sleep 1000") + "exit 0", {"AppType=forking", "AppOnPredecessor=replace"});
    Do({"start", name});
    const pid_t first = StateFile().program;
    KillProcessOf(name);
    EXPECT_TRUE(Lives(first));
    (void)Tvsc({"interrogate", name}); // the daemon finds it dead
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_FALSE(Lives(first));
    EXPECT_EQ(ProcessesThatMention(file).size(), 1u);
}

TEST_F(TvhostLife, a_program_killed_together_with_tvhost_is_in_nobody_s_way) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    const HostState state = StateFile();
    kill(state.host, SIGSTOP); // neither sees the other one's end
    kill(state.program, SIGKILL);
    kill(state.host, SIGKILL);
    ASSERT_TRUE(WaitUntil([&] { return !Lives(state.program) && !Lives(state.host); }));
    EXPECT_EQ(Tvsc({"interrogate", name}).status, 7) << "the daemon finds it dead";
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    EXPECT_THAT(LogText(), Not(HasSubstr("an earlier start")));
    EXPECT_NE(StateFile().program, state.program);
}

struct WithoutDaemon : TvhostLife {
    HostState StartAndEndDaemon(int signal, const std::vector<std::string> &settings) {
        CreateShell("exec sleep 1000", settings);
        Do({"start", name});
        const HostState state = StateFile();
        (void)StopDaemon(serviceDaemon, signal);
        return state;
    }
    void ExpectKept(int signal) {
        const HostState state = StartAndEndDaemon(signal, {});
        EXPECT_TRUE(Lives(state.program));
        serviceDaemon = StartServiceDaemon();
        EXPECT_TRUE(AwaitState("running"));
        EXPECT_TRUE(Lives(state.program));
        kill(state.host, SIGTERM);
        EXPECT_TRUE(AwaitState("stopped"));
        EXPECT_FALSE(Lives(state.program));
    }
    void ExpectEnded(int signal) {
        const HostState state = StartAndEndDaemon(signal, {"AppOnDaemonRestart=end"});
        EXPECT_TRUE(WaitUntil([&] { return !Lives(state.program) && !Lives(state.host); }));
        EXPECT_THAT(LogText(), HasSubstr("its daemon has ended: it stops (AppOnDaemonRestart)"));
        serviceDaemon = StartServiceDaemon();
        EXPECT_EQ(StateText(), "stopped");
        EXPECT_EQ(Do({"start", name}), name + ": running\n");
    }
};

TEST_F(WithoutDaemon, a_service_is_kept_and_the_next_daemon_hears_of_it) { ExpectKept(SIGTERM); }

TEST_F(WithoutDaemon, a_service_outlives_a_killed_daemon) { ExpectKept(SIGKILL); }

TEST_F(WithoutDaemon, a_service_ends_with_its_daemon_where_that_is_asked_for) { ExpectEnded(SIGTERM); }

TEST_F(WithoutDaemon, a_service_ends_with_a_killed_daemon_where_that_is_asked_for) { ExpectEnded(SIGKILL); }

// --- what tvsc tells of it ---

TEST_F(TvhostLife, the_process_shown_is_the_program_with_what_its_tree_takes) {
    CreateShell("for i in {1..300000}; do :; done; sleep 1; exec -a " + file + " sleep 1000");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return NameOfProcess(StateFile().program) == "sleep"; }));
    const Json program = Status().at("program");
    EXPECT_EQ(program.at("pid"), StateFile().program);
    EXPECT_EQ(program.at("host_pid"), ProcessOf(name));
    EXPECT_GE(program.at("uptime_ms"), 900);
    EXPECT_LE(program.at("uptime_ms"), 60000);
    EXPECT_GE(program.at("cpu_ms"), 30);
    EXPECT_GT(program.at("memory_bytes"), 100'000);
    EXPECT_EQ(program.at("processes"), 1);
    EXPECT_EQ(program.at("restarts"), 0);
    EXPECT_THAT(Do({"status", name}),
                AllOf(HasSubstr("process: " + std::to_string(StateFile().program) + " sleep, for "),
                      HasSubstr("(tvhost " + std::to_string(ProcessOf(name)) + ")"), HasSubstr("takes: 1 process, ")));
}

TEST_F(TvhostLife, status_tells_restarts_the_next_attempt_and_the_last_lines) {
    CreateShell("for i in 1 2 3 4 5 6 7; do echo line $i; done; exit 3",
                {"AppRestart=always", "AppRestartDelay=30000"});
    (void)Tvsc({"start", "--no-wait", name});
    ASSERT_TRUE(WaitUntil([this] { return StateFile().phase == "waiting"; }));
    const Json program = Status().at("program");
    EXPECT_EQ(program.at("restarts"), 1);
    EXPECT_GT(program.at("next_attempt_ms"), EpochMs());
    const Ended ended = Tvsc({"status", name});
    EXPECT_THAT(ended.output,
                AllOf(HasSubstr("restarts: 1\n"), HasSubstr("next: in 2"), HasSubstr("reason: ended with status 3\n"),
                      HasSubstr("line 7\n"), Not(HasSubstr("line 2\n"))));
}

TEST_F(TvhostLife, a_failed_start_shows_the_last_lines_of_the_log) {
    CreateShell("echo 'Cannot open configuration file'; exit 1", {"AppReadyDelay=2000"});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("  | Cannot open configuration file\n"));
    EXPECT_THAT(Tvsc({"status", name}).output,
                AllOf(HasSubstr("reason: ended with status 1"), HasSubstr("log: Cannot open configuration file\n")));
}

TEST_F(TvhostLife, logs_are_read_over_all_files_from_the_last_lines_or_since_a_moment) {
    CreateShell("seq 1 100; sleep 3; echo last", {"AppRotateBytes=1000", "AppRotateFiles=9", "AppLogTimestamps=1"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(AwaitState("stopped"));
    const std::string all = Do({"logs", name});
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 101);
    const std::string some = Do({"logs", name, "-n", "50"});
    EXPECT_EQ(all.substr(all.size() - some.size()), some);
    EXPECT_EQ(std::count(some.begin(), some.end(), '\n'), 50);
    EXPECT_THAT(Do({"logs", name, "--since", "2s"}), testing::MatchesRegex("[-0-9]+T[:0-9.]+Z last\n"));
    EXPECT_EQ(Do({"logs", name, "-n", "0"}), "");
}

TEST_F(TvhostLife, logs_are_followed_while_files_are_put_aside) {
    CreateShell("for i in {1..40}; do seq $((i * 100 - 99)) $((i * 100)); sleep 0.03; done; sleep 1000",
                {"AppRotateBytes=2000", "AppRotateFiles=50"});
    const std::string out = file + ".followed";
    Do({"start", name});
    const pid_t reader =
        StartProgram({.command = {ProgramPath("tvsc"), "logs", name, "-f", "-n", "100000"}, .outputFile = out});
    const auto text = [&] { return ReadWhatIsThere(out); };
    EXPECT_TRUE(WaitUntil([&] { return text().ends_with("\n4000\n"); }));
    kill(reader, SIGTERM);
    (void)WaitForEnd(reader);
    std::string wanted;
    for (int i = 1; i <= 4000; ++i) {
        wanted += std::to_string(i) + "\n";
    }
    EXPECT_TRUE(text() == wanted) << text().size() << " instead of " << wanted.size() << " bytes";
}

TEST_F(TvhostLife, a_service_without_a_log_says_so) {
    const Ended ended = Tvsc({"logs", "no-such-service"});
    EXPECT_EQ(ended.status, 5);
    EXPECT_THAT(ended.error, HasSubstr("no log"));
}

} // namespace
