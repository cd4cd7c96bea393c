// SPDX-License-Identifier: MIT
// tvhost: programs that know nothing of services, run as services.
#include "tests/support/tvhost_world.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <csignal>
#include <filesystem>
#include <thread>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Tvhost : TvhostWorld {
    // Creates a service that runs a shell command.
    void CreateShell(const std::string &command, const std::vector<std::string> &further = {}) {
        WriteFile(folder + "/" + name + ".sh", command + "\n");
        std::vector<std::string> create = {"create", name, "--exec", "/bin/sh " + folder + "/" + name + ".sh"};
        create.insert(create.end(), further.begin(), further.end());
        Do(create);
    }
    // A file that a program and the test meet at.
    std::string Marker() { return folder + "/" + name + ".marker"; }
    bool HasMarker() { return access(Marker().c_str(), F_OK) == 0; }
    pid_t OnlyChild() {
        const std::vector<pid_t> children = ChildrenOf(ProcessOf(name));
        return children.size() == 1 ? children.front() : 0;
    }
    // Starts the service with the registry daemon halted before tvhost can read anything.
    SC_HANDLE manager = nullptr;
    SC_HANDLE opened = nullptr;
    void StartWithSilentRegistry() {
        CreateShell("touch " + Marker());
        const std::string script = folder + "/" + name + ".csh";
        WriteFile(script, "#!/bin/csh -f\n/bin/kill -STOP " + std::to_string(registryDaemon) + "\nexec " +
                              ProgramPath("tvhost") + "\n");
        Do({"config", name, "--image", script});
        manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        opened = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
        ASSERT_TRUE(StartServiceA(opened, 0, nullptr)) << GetLastError();
        ASSERT_TRUE(WaitUntil([this] { return StatusNow().dwControlsAccepted == SERVICE_ACCEPT_STOP; }));
    }
    SERVICE_STATUS StatusNow() const {
        SERVICE_STATUS status = {};
        EXPECT_TRUE(QueryServiceStatus(opened, &status)) << GetLastError();
        return status;
    }
    bool HasStoppedWell() {
        const bool stopped = WaitUntil([this] { return StatusNow().dwCurrentState == SERVICE_STOPPED; }, 10000);
        kill(registryDaemon, SIGCONT);
        return stopped && StatusNow().dwWin32ExitCode == ERROR_SUCCESS && !HasMarker();
    }
    void TearDown() override {
        kill(registryDaemon, SIGCONT);
        if (opened != nullptr) (void)CloseServiceHandle(opened);
        if (manager != nullptr) (void)CloseServiceHandle(manager);
        TvhostWorld::TearDown();
    }
    // Hands a process the start of a service, as the daemon does.
    static std::int32_t StartBy(CLIENT *process, const std::string &service) {
        const RpcClient daemon = DialServiceDaemon();
        const std::int32_t index =
            CallForAnswer(daemon.get(), servd_SERV_OPEN_SERVICE{Text(service.c_str()), 0})->handle;
        (void)CallForAnswer(daemon.get(), servd_SERV_CLOSE_SERVICE{index});
        return CallForAnswer(process, service_START_SERVICE_IN{Text(service.c_str()), nullptr, 0, index})->status;
    }
};

TEST_F(Tvhost, a_program_runs_until_it_is_stopped) {
    CreateShell("sleep 1000");
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
    const pid_t program = OnlyChild();
    EXPECT_NE(program, 0);
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_FALSE(Lives(program));
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

TEST_F(Tvhost, parameters_reach_the_program) {
    CreateShell("echo \"$A/$B/$HIDDEN $(pwd) $*\" && echo oops >&2 && exec sleep 1000",
                {"--env", "A=1", "--env", "B=two words", "--cwd", "/usr", "--stdout", folder + "/out", "--stderr",
                 folder + "/err"});
    Do({"start", name, "--", "given", "at start"});
    ASSERT_TRUE(
        WaitUntil([] { return access((folder + "/err").c_str(), F_OK) == 0 && !ReadFile(folder + "/err").empty(); }));
    EXPECT_EQ(ReadFile(folder + "/out"), "1/two words/ /usr given at start\n");
    EXPECT_EQ(ReadFile(folder + "/err"), "oops\n");
}

TEST_F(Tvhost, output_is_appended) {
    WriteFile(folder + "/appended", "before\n");
    CreateShell("echo after", {"--stdout", folder + "/appended"});
    (void)Tvsc({"start", name});
    ASSERT_TRUE(WaitUntil([] { return ReadFile(folder + "/appended") == "before\nafter\n"; }));
}

TEST_F(Tvhost, a_good_end_stops_the_service_with_0) {
    CreateShell("until [ -e " + Marker() + " ]; do sleep 0.05; done");
    Do({"start", name});
    WriteFile(Marker(), "");
    EXPECT_EQ(Do({"wait", name, "--for", "stopped"}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

TEST_F(Tvhost, another_end_is_service_specific) {
    CreateShell("until [ -e " + Marker() + " ]; do sleep 0.05; done; exit 3");
    Do({"start", name});
    WriteFile(Marker(), "");
    (void)Tvsc({"wait", name, "--for", "stopped"});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_SERVICE_SPECIFIC_ERROR);
    EXPECT_EQ(Status().at("exit").at("service_specific"), 3);
}

TEST_F(Tvhost, a_killed_program_is_service_specific) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    kill(OnlyChild(), SIGKILL);
    (void)Tvsc({"wait", name, "--for", "stopped"});
    EXPECT_EQ(Status().at("exit").at("service_specific"), 128 + SIGKILL);
}

TEST_F(Tvhost, a_program_that_ignores_the_stop_is_killed_with_all_it_started) {
    CreateShell("trap '' TERM; sleep 1000 & echo $! >" + folder + "/child; wait; sleep 1000",
                {"--stop-timeout-ms", "400"});
    Do({"start", name});
    ASSERT_TRUE(WaitUntil(
        [] { return access((folder + "/child").c_str(), F_OK) == 0 && !ReadFile(folder + "/child").empty(); }));
    const pid_t grandchild = std::stoi(ReadFile(folder + "/child"));
    const pid_t program = OnlyChild();
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_FALSE(Lives(program));
    EXPECT_FALSE(Lives(grandchild));
}

TEST_F(Tvhost, the_stop_leaves_time_for_a_clean_end) {
    CreateShell("trap 'sleep 0.3; echo cleaned >" + folder + "/cleaned; exit 0' TERM; touch " + Marker() +
                "; while :; do sleep 0.05; done");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return HasMarker(); }));
    Do({"stop", name});
    EXPECT_EQ(ReadFile(folder + "/cleaned"), "cleaned\n");
}

// Its wait hint used to come out as less than ten seconds, after which the daemon takes the service for dead.
TEST_F(Tvhost, the_longest_stop_time_out_announces_a_long_wait) {
    CreateShell("trap '' TERM; touch " + Marker() + "; while true; do sleep 1; done",
                {"--stop-timeout-ms", "4294967295"});
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([&] { return HasMarker(); }));
    Do({"stop", "--no-wait", name});
    ASSERT_TRUE(WaitUntil([&] { return Status().at("wait_hint_ms") != 0; }));
    EXPECT_GE(Status().at("wait_hint_ms"), 2000000000);
    const pid_t program = OnlyChild();
    kill(-program, SIGKILL);
    EXPECT_TRUE(WaitUntil([&] { return Status().at("state") == "stopped"; }));
}

TEST_F(Tvhost, pausing_freezes_the_program_and_continuing_thaws_it) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    const std::string stat = "/proc/" + std::to_string(OnlyChild()) + "/status";
    Do({"pause", name});
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(stat).find("State:\tT") != std::string::npos; }));
    Do({"continue", name});
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(stat).find("State:\tS") != std::string::npos; }));
}

TEST_F(Tvhost, a_paused_program_can_be_stopped) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    Do({"pause", name});
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(Tvhost, user_controls_hand_signals_on) {
    CreateShell("trap 'echo hup >>" + folder + "/signals' HUP; touch " + Marker() + "; while :; do sleep 0.05; done");
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([this] { return HasMarker(); }));
    Do({"control", name, "129"});
    EXPECT_TRUE(WaitUntil([] { return access((folder + "/signals").c_str(), F_OK) == 0; }));
    EXPECT_EQ(Status().at("state"), "running");
}

TEST_F(Tvhost, a_missing_program_stops_the_service_with_2) {
    CreateShell("true");
    WriteKey(ParametersKey(), {{"Application", REG_SZ, Sz("/no/such/program")}});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("2 ERROR_FILE_NOT_FOUND"));
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Tvhost, a_missing_folder_stops_the_service_with_3) {
    CreateShell("true", {"--cwd", "/no/such/folder"});
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_PATH_NOT_FOUND);
}

TEST_F(Tvhost, a_missing_folder_of_an_output_file_stops_the_service_with_3) {
    CreateShell("true", {"--stdout", "/no/such/folder/out"});
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_PATH_NOT_FOUND);
}

// Symptom: the service hung in its start, and neither stop nor SIGTERM ended it. Cause: opening a FIFO waits for a
// reader.
TEST_F(Tvhost, a_fifo_that_nobody_reads_fails_the_start) {
    const std::string fifo = folder + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    CreateShell("touch " + Marker(), {"--stdout", fifo});
    EXPECT_THAT(Tvsc({"start", name}).error, HasSubstr("1066"));
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_SERVICE_SPECIFIC_ERROR);
    EXPECT_EQ(Status().at("exit").at("service_specific"), ENXIO);
    EXPECT_FALSE(HasMarker());
}

TEST_F(Tvhost, a_fifo_that_somebody_reads_takes_the_output) {
    const std::string fifo = folder + "/read_fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const DescriptorGuard closed(&reader);
    CreateShell("echo hello; exec sleep 1000", {"--stdout", fifo});
    Do({"start", name});
    char text[32] = {};
    EXPECT_TRUE(WaitUntil([&] { return read(reader, text, sizeof text - 1) == 6; }));
    EXPECT_STREQ(text, "hello\n");
    Do({"stop", name});
}

TEST_F(Tvhost, a_disk_takes_no_output) {
    const std::string disk = folder + "/disk";
    if (mknod(disk.c_str(), S_IFBLK | 0600, makedev(7, 200)) != 0) GTEST_SKIP() << "no device can be made here";
    int probe = open(disk.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const DescriptorGuard closed(&probe);
    if (probe < 0) GTEST_SKIP() << "this kernel has no loop devices";
    CreateShell("touch " + Marker(), {"--stdout", disk});
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("service_specific"), EINVAL);
}

// --- a stop while it starts ---

TEST_F(Tvhost, a_stop_is_heard_while_the_registry_does_not_answer) {
    StartWithSilentRegistry();
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(opened, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    EXPECT_TRUE(HasStoppedWell());
}

TEST_F(Tvhost, a_termination_signal_is_heard_while_the_registry_does_not_answer) {
    StartWithSilentRegistry();
    const pid_t host = ProcessOf(name);
    ASSERT_NE(host, 0);
    kill(host, SIGTERM);
    EXPECT_TRUE(HasStoppedWell());
}

TEST_F(Tvhost, a_stop_is_heard_while_the_program_does_not_begin) {
    CreateShell("touch " + Marker());
    const std::string script = folder + "/" + name + ".csh";
    const std::string module = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "libsignal_child.so";
    WriteFile(script, "#!/bin/csh -f\nexec env TV_SIGNAL_CHILD=halt ASAN_OPTIONS=verify_asan_link_order=0 " +
                          ("LD_PRELOAD=" + module + " " + ProgramPath("tvhost") + "\n"));
    Do({"config", name, "--image", script});
    Do({"start", "--no-wait", name});
    const pid_t host = ProcessOf(name);
    ASSERT_TRUE(WaitUntil([&] { return OnlyChild() != 0; }));
    const std::int64_t before = MonotonicMs();
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_LT(MonotonicMs() - before, 10000) << "a child may take 30 s";
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
    EXPECT_FALSE(HasMarker());
    EXPECT_TRUE(WaitUntil([&] { return !Lives(host); }));
}

TEST_F(Tvhost, a_file_that_is_no_program_stops_the_service_with_193) {
    CreateShell("true");
    WriteFile(folder + "/text", "\n\n", 0755);
    WriteKey(ParametersKey(), {{"Application", REG_SZ, Sz(folder + "/text")}});
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_BAD_EXE_FORMAT);
}

TEST_F(Tvhost, words_behind_two_dashes_need_no_quotes) {
    const std::string out = folder + "/" + name + ".out";
    Do({"create", name, "--", "/bin/sh", "-c", "echo \"$0|$1\" '%PATH%' > " + out + "; exec sleep 1000", "a 'b' \\"});
    EXPECT_EQ(ReadValue(ParametersKey(), "AppArguments")->type, DWORD{REG_MULTI_SZ});
    Do({"start", name, "--", "given"});
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(out) == "a 'b' \\|given %PATH%\n"; })) << ReadWhatIsThere(out);
    Do({"stop", name});
}

TEST_F(Tvhost, a_list_of_arguments_goes_before_the_line) {
    const std::string out = folder + "/" + name + ".out";
    Do({"create", name, "--exec", "/bin/echo line", "--stdout", out});
    WriteKey(ParametersKey(), {{"AppArguments", REG_MULTI_SZ, MultiSz({"list"})}});
    (void)Tvsc({"start", name});
    EXPECT_TRUE(WaitUntil([&] { return ReadWhatIsThere(out) == "list\n"; })) << ReadWhatIsThere(out);
}

TEST_F(Tvhost, what_a_shell_would_act_on_is_told_at_creation) {
    const std::string acts = ";&|<>*?$`";
    for (std::size_t i = 0; i < acts.size(); ++i) {
        const Ended ended =
            Tvsc({"create", name + "-act-" + std::to_string(i), "--exec", std::string("/bin/echo ") + acts[i] + " x"});
        EXPECT_EQ(ended.status, 0) << acts[i];
        EXPECT_THAT(ended.error,
                    HasSubstr(std::string("no shell reads it: the ") + acts[i] + " goes to the program as it is"));
    }
    EXPECT_EQ(Tvsc({"create", name + "-2", "--exec", "/bin/echo '*.txt'"}).error, "");
    EXPECT_EQ(Tvsc({"create", name + "-3", "--", "/bin/echo", "*.txt"}).error, "");
}

TEST_F(Tvhost, parameters_are_set_at_creation_by_their_names) {
    Do({"create", name, "--set", "AppRestart=always", "--set", "AppRestartDelay=0x10", "--set", "AppDirectory=/usr",
        "--", "/bin/true"});
    EXPECT_EQ(ReadValue(ParametersKey(), "AppRestart")->data, Sz("always"));
    EXPECT_EQ(ReadValue(ParametersKey(), "AppRestartDelay")->data, Dword(16));
    EXPECT_EQ(ReadValue(ParametersKey(), "AppDirectory")->data, Sz("/usr"));
    const auto refused = [this](const std::string &setting) {
        return Tvsc({"create", name + "-2", "--set", setting, "--exec", "/bin/true"}).error;
    };
    EXPECT_THAT(refused("AppRestarts=1"), HasSubstr("AppRestarts: tvhost has no such parameter"));
    EXPECT_THAT(refused("AppRestart=1"), HasSubstr("AppRestart: 1 is none of never, on-failure, always"));
    EXPECT_THAT(refused("AppRestartDelay=soon"), HasSubstr("AppRestartDelay: soon is no number"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\" + name + "-2"));
}

TEST_F(Tvhost, a_list_takes_no_empty_argument) {
    EXPECT_THAT(Tvsc({"create", name, "--", "/bin/echo", ""}).error, HasSubstr("an argument is empty"));
}

TEST_F(Tvhost, a_line_is_given_the_service_s_variables) {
    Do({"create", name, "--exec", "/bin/sh -c 'echo \"$@\" > \"$OUT\"; exec sleep 1000' sh ${WHO} %WHO%! '%WHO%'",
        "--env", "WHO=two words", "--env", "OUT=" + folder + "/" + name + ".out"});
    Do({"start", name});
    EXPECT_TRUE(
        WaitUntil([&] { return ReadWhatIsThere(folder + "/" + name + ".out") == "two words two words! %WHO%\n"; }));
    Do({"stop", name});
}

TEST_F(Tvhost, a_service_without_parameters_stops_with_2) {
    CreateShell("true");
    DeleteKey(ParametersKey());
    (void)Tvsc({"start", name});
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Tvhost, the_program_ends_with_a_killed_tvhost) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    const pid_t program = OnlyChild();
    KillProcessOf(name);
    EXPECT_TRUE(WaitUntil([&] { return !Lives(program); }));
    EXPECT_EQ(Tvsc({"interrogate", name}).status, 7);
}

TEST_F(Tvhost, a_termination_signal_to_tvhost_is_a_stop) {
    CreateShell("exec sleep 1000");
    Do({"start", name});
    kill(ProcessOf(name), SIGTERM);
    EXPECT_EQ(Do({"wait", name, "--for", "stopped"}), name + ": stopped\n");
    EXPECT_EQ(Status().at("exit").at("win32"), 0);
}

TEST_F(Tvhost, the_program_gets_no_descriptors_and_default_signals) {
    CreateShell("readlink /proc/self/fd/0; ls /proc/self/fd | wc -l; grep -E '^Sig(Blk|Ign)' /proc/self/status; exec "
                "sleep 1000",
                {"--stdout", folder + "/surroundings", "--stderr", "/dev/null"});
    Do({"start", name});
    ASSERT_TRUE(WaitUntil([] {
        return access((folder + "/surroundings").c_str(), F_OK) == 0 &&
               ReadFile(folder + "/surroundings").find("SigIgn") != std::string::npos;
    }));
    // Three, and the one that ls has open itself.
    EXPECT_EQ(ReadFile(folder + "/surroundings"),
              "/dev/null\n4\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

// Symptom: root's tvhost ran the program of another service as user 0, and its own could not be stopped any more.
// Cause: it took every start request, under any name.
TEST_F(Tvhost, a_start_of_another_service_is_refused_and_the_own_one_can_still_be_stopped) {
    CreateShell("exec sleep 1000");
    Do({"create", name + "-2", "--exec", "/usr/bin/touch " + Marker()});
    Do({"start", name});
    const std::uint32_t process = static_cast<std::uint32_t>(ProcessOf(name));
    const RpcClient host(DialHost("localhost", SERVDAEMONPROG + process, 1));
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(StartBy(host.get(), name + "-2"), ERROR_SERVICE_NOT_IN_EXE);
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
    EXPECT_FALSE(HasMarker());
}

TEST_F(Tvhost, root_s_process_does_not_run_the_service_of_another_account) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    Do({"create", name, "--exec", "/usr/bin/touch " + Marker(), "--user", "nobody"});
    const pid_t process = StartProgram({.command = {ProgramPath("tvhost")}, .errorFile = folder + "/said"});
    const std::uint32_t program = SERVDAEMONPROG + static_cast<std::uint32_t>(process);
    ASSERT_TRUE(WaitForProgram(program, 1));
    EXPECT_EQ(StartBy(RpcClient(DialHost("localhost", program, 1)).get(), name), 0);
    EXPECT_EQ(WaitForEnd(process), 0);
    EXPECT_EQ(Status().at("exit").at("win32"), ERROR_INVALID_SERVICE_ACCOUNT);
    EXPECT_THAT(ReadFile(folder + "/said"), HasSubstr("its account is not the one of this process"));
    EXPECT_FALSE(HasMarker());
}

TEST_F(Tvhost, by_hand_it_ends_at_once) {
    const std::int64_t before = MonotonicMs();
    const Ended ended = RunAndRead({.command = {ProgramPath("tvhost")}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("1063"));
    EXPECT_LT(MonotonicMs() - before, 5000);
}

TEST_F(Tvhost, by_hand_it_tells_what_it_is_for) {
    const auto run = [](const char *option) { return RunAndRead({.command = {ProgramPath("tvhost"), option}}); };
    EXPECT_THAT(run("--help").output, HasSubstr("see tvhost(8)"));
    EXPECT_EQ(run("--help").status, 0);
    EXPECT_THAT(run("--version").output, StartsWith("tvhost "));
    EXPECT_EQ(run("--version").status, 0);
    EXPECT_THAT(run("start").error, StartsWith("usage: tvhost"));
    EXPECT_EQ(run("start").status, 2);
}

TEST_F(Tvhost, a_program_that_nobody_here_wrote_answers) {
    if (access("/bin/busybox", X_OK) != 0) GTEST_SKIP() << "needs busybox";
    WriteFile(folder + "/index.html", "it works\n");
    Do({"create", name, "--exec", "/bin/busybox httpd -f -p 8099 -h " + folder});
    Do({"start", name});
    const std::vector<std::string> fetch = {"/bin/busybox", "wget", "-q",
                                            "-O",           "-",    "http://127.0.0.1:8099/index.html"};
    EXPECT_TRUE(
        WaitUntil([&] { return RunAndRead({.command = fetch, .errorFile = "/dev/null"}).output == "it works\n"; }));
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

// The log of the service daemon is read at terminals.
TEST_F(Tvhost, a_message_shows_no_byte_that_a_terminal_would_act_on) {
    CreateShell("true", {"--cwd", "/no/\x1B[31m"});
    const std::string said = StartByScript();
    (void)Tvsc({"start", name});
    EXPECT_EQ(ReadFile(said), "tvhost: " + name + ": not started: /no/\\x1b[31m: No such file or directory\n");
}

} // namespace
