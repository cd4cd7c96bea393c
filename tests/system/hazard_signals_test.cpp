// SPDX-License-Identifier: MIT
// Signals at any moment, and the process's own start: the daemon ends at once with status 0 and leaves the port mapper,
// and its services get what the daemon was started with.
#include "servd/ending.h"
#include "tests/support/hazard.h"

#include "tv/winerror.h"

#include <rpc/pmap_clnt.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <random>
#include <thread>

using namespace raw;

namespace {

constexpr int caughtSignals[] = {SIGTERM, SIGINT, SIGSEGV, SIGILL, SIGFPE};

struct HazardSignals : Hazard {
    std::minstd_rand random{4711};

    void SetUp() override {}

    void TearDown() override {
        if (KeyExists(servicesKey)) DeleteKey(servicesKey);
    }

    void PauseUpTo(int milliseconds) { PauseMs(std::uniform_int_distribution(0, milliseconds)(random)); }

    // Sends the signal, expects status 0 and no entry in the port mapper, and returns how long it took in milliseconds.
    double EndBy(int signalNumber) {
        const Clock::time_point start = Clock::now();
        const int status = StopDaemon(daemon, signalNumber, 10000);
        const double taken = MsSince(start);
        EXPECT_EQ(status, 0) << "signal " << signalNumber;
        EXPECT_FALSE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS)) << "signal " << signalNumber;
        daemon = 0;
        return taken;
    }
};

// Clients that call without pause, and begin anew whenever the daemon has gone.
struct Load {
    std::atomic<bool> ends = false;
    std::vector<std::thread> clients;

    explicit Load(std::uint16_t port) {
        for (int i = 0; i < 3; ++i) {
            clients.emplace_back([this, port] {
                while (!ends) {
                    const Socket client = ConnectTo(port);
                    const std::string call = AsMessage(ServdCall(GET_DISPLAY_SERVICE, XdrString("Reporter")));
                    while (!ends && Send(client, call) && !ReadMessage(client).empty()) {
                    }
                }
            });
        }
    }
    ~Load() {
        ends = true;
        for (std::thread &client : clients) {
            client.join();
        }
    }
};

double MedianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

TEST_F(HazardSignals, signals_under_load_end_the_daemon_at_once) {
    WriteOddService("Plain", "plain");
    std::vector<double> taken;
    const int trials = Trials(6, 60);
    for (int trial = 0; trial < trials; ++trial) {
        for (const int caught : caughtSignals) {
            StartDaemon();
            ASSERT_EQ(StartByName("Plain"), 0U); // its reaper lives
            const Load load(port);
            PauseUpTo(20);
            taken.push_back(EndBy(caught));
        }
        for (const pid_t service : ChildrenOf(getpid(), "odd_service")) {
            (void)StopDaemon(service, SIGKILL);
        }
    }
    EXPECT_LT(*std::max_element(taken.begin(), taken.end()), 1000);
    Measured(
        "%zu ends under load with a live reaper: all with status 0 and unregistered, median %.1f ms, worst %.1f ms",
        taken.size(), MedianOf(taken), *std::max_element(taken.begin(), taken.end()));
}

TEST_F(HazardSignals, signals_during_a_start_end_the_daemon_at_once) {
    WriteOddService("Never", "never");
    std::vector<double> taken;
    for (int trial = 0; trial < Trials(1, 10); ++trial) {
        for (const int caught : caughtSignals) {
            StartDaemon();
            const Socket client = Connect();
            ASSERT_TRUE(Send(client, AsMessage(ServdCall(START_SERVICE, Words({1, 0, 0})))));
            PauseUpTo(1500);
            taken.push_back(EndBy(caught));
            EXPECT_TRUE(IsAtEnd(client, 1000));
        }
    }
    EXPECT_LT(*std::max_element(taken.begin(), taken.end()), 1000);
    Measured("%zu ends in the middle of a start: median %.1f ms, worst %.1f ms", taken.size(), MedianOf(taken),
             *std::max_element(taken.begin(), taken.end()));
}

TEST_F(HazardSignals, signals_during_a_registry_call_end_the_daemon_at_once) {
    WriteService("Plain", 3, "/nowhere");
    std::vector<double> taken;
    for (int trial = 0; trial < Trials(1, 10); ++trial) {
        for (const int caught : caughtSignals) {
            StartDaemon();
            ASSERT_EQ(kill(registry, SIGSTOP), 0);
            const Socket client = Connect();
            ASSERT_TRUE(Send(client, AsMessage(ServdCall(QUERY_CONFIG_SERVICE, Words({1})))));
            PauseMs(20);
            EXPECT_FALSE(IsAtEnd(client, 0));
            taken.push_back(EndBy(caught));
            ASSERT_EQ(kill(registry, SIGCONT), 0);
        }
    }
    EXPECT_LT(*std::max_element(taken.begin(), taken.end()), 1000);
    Measured("%zu ends in the middle of a registry call: median %.1f ms, worst %.1f ms", taken.size(), MedianOf(taken),
             *std::max_element(taken.begin(), taken.end()));
}

namespace {

constexpr int tableSize = 40;

// Whether the process has every descriptor below the limit; it may have inherited others above it.
bool IsTableFull(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process) + "/fd/";
    for (int descriptor = 0; descriptor < tableSize; ++descriptor) {
        if (!std::filesystem::is_symlink(folder + std::to_string(descriptor))) return false;
    }
    return true;
}

} // namespace

TEST_F(HazardSignals, a_full_descriptor_table_does_not_keep_the_entry) {
    if (IsSanitized()) GTEST_SKIP() << "a sanitizer itself opens a file in the handler, and dies if it can't";
    std::vector<double> taken;
    for (int trial = 0; trial < Trials(3, 20); ++trial) {
        StartDaemon({.descriptors = tableSize});
        std::vector<Socket> connections;
        for (int i = 0; i < 60; ++i) {
            connections.push_back(Connect());
            (void)Send(connections.back(), "\x80");
        }
        (void)CallMs();
        ASSERT_TRUE(WaitUntil([&] {
            if (IsTableFull(daemon)) return true;
            connections.push_back(Connect()); // takes the place of the one that has gone
            return false;
        }));
        taken.push_back(EndBy(SIGTERM));
    }
    Measured("%zu ends with a full descriptor table: worst %.1f ms", taken.size(),
             *std::max_element(taken.begin(), taken.end()));
}

// Symptom: in a container, or with a /run of its own, the daemon registered and its entry stayed when a signal had
// ended it. Cause: the library registers over the loopback interface where it does not see the port mapper's local
// socket, and the handler knew that socket only.
TEST_F(HazardSignals, without_the_port_mapper_s_local_socket_the_entry_goes_over_the_loopback_interface) {
    const Launch hidden = {.command = {"/usr/bin/unshare", "--mount", "/bin/sh", "-c",
                                       "mount -t tmpfs hidden /run && exec \"$0\"", ProgramPath("servd")},
                           .directory = MakeScratchFolder()};
    std::vector<double> taken;
    for (int trial = 0; trial < Trials(1, 10); ++trial) {
        for (const int caught : caughtSignals) {
            daemon = StartDetached(hidden, "servd").process;
            ASSERT_NE(daemon, 0);
            ASSERT_TRUE(WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS));
            ASSERT_FALSE(std::filesystem::exists("/proc/" + std::to_string(daemon) + "/root/run/rpcbind.sock"));
            taken.push_back(EndBy(caught));
        }
    }
    EXPECT_LT(*std::max_element(taken.begin(), taken.end()), 1000);

    daemon = StartDetached(hidden, "servd").process;
    ASSERT_TRUE(WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS));
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_EQ(kill(portMapper, SIGSTOP), 0);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(StopDaemon(daemon, SIGTERM, 10000), 0);
    const double stopped = MsSince(start);
    ASSERT_EQ(kill(portMapper, SIGCONT), 0);
    EXPECT_LT(stopped, 1000);
    daemon = 0;
    Measured("%zu ends without the local socket: worst %.1f ms; %.0f ms with the port mapper stopped", taken.size(),
             *std::max_element(taken.begin(), taken.end()), stopped);
}

namespace {

[[gnu::noinline]] int Overflow(int depth) {
    volatile char frame[4096] = {};
    frame[0] = static_cast<char>(depth);
    return depth < 1 << 30 ? Overflow(depth + 1) + frame[0] : 0;
}

} // namespace

TEST_F(HazardSignals, a_stack_overflow_ends_like_any_fault) {
    const pid_t child = fork();
    if (child == 0) {
        PrepareEnding();
        CatchSignal(SIGSEGV, [](int) { EndOnSignal(); });
        if (!pmap_set(SERVDAEMONPROG, SERVDAEMONVERS, IPPROTO_TCP, 9)) _exit(3);
        _exit(Overflow(0) == 0 ? 4 : 5);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS));
}

// --- children ---

namespace {

// The lines that tell what a process blocks, ignores and catches.
std::string SignalsIn(const std::string &file) {
    EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(file); })) << file;
    const std::string state = ReadFile(file);
    const std::size_t masks = state.find("SigPnd"); // before it: how many signals wait for all of the user's processes
    return state.substr(masks, state.find("fd ") - masks);
}

// Signals blocked and ignored by the programs started while it lives.
struct SignalsGuard {
    sigset_t before = {};

    SignalsGuard() {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGUSR2);
        (void)pthread_sigmask(SIG_BLOCK, &blocked, &before);
        (void)signal(SIGUSR1, SIG_IGN);
    }
    SignalsGuard(const SignalsGuard &) = delete;
    SignalsGuard &operator=(const SignalsGuard &) = delete;
    ~SignalsGuard() {
        (void)signal(SIGUSR1, SIG_DFL);
        (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
};

} // namespace

// A signal that finds the daemon inside malloc, or a child that is killed in the middle of a question to the registry,
// is a matter of luck. That neither handlers nor children do anything that could go wrong then is not.
TEST_F(HazardSignals, handlers_and_children_before_their_exec_do_only_what_is_safe_there) {
    if (IsSanitized()) GTEST_SKIP() << "sanitizers bring a malloc of their own";
    WriteOddService("Plain", "plain");
    const std::string module = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "libstrict_calls.so";
    for (const int caught : caughtSignals) {
        {
            const SignalsGuard signals;
            StartDaemon({.environment = {"LD_PRELOAD=" + module}});
        }
        ASSERT_EQ(StartByName("Plain"), 0U) << "its process came up";
        (void)EndBy(caught);
        for (const pid_t service : ChildrenOf(getpid(), "odd_service")) {
            (void)StopDaemon(service, SIGKILL);
        }
    }
}

TEST_F(HazardSignals, services_get_the_signals_that_the_daemon_was_started_with) {
    // What the shell makes of them is seen by running it without the daemon in between.
    WriteOddService("Direct", "state " + folder + "/direct");
    WriteOddService("Service", "state " + folder + "/service");
    pid_t direct = 0;
    {
        const SignalsGuard signals;
        direct = StartProgram({.command = {"/bin/csh", folder + "/Direct.csh"}});
        StartDaemon();
    }
    ASSERT_EQ(StartByName("Service"), 0U);
    const std::string expected = SignalsIn(folder + "/direct");
    EXPECT_NE(expected.find("SigIgn:\t0000000000000200"), std::string::npos) << expected;
    EXPECT_EQ(SignalsIn(folder + "/service"), expected);
    (void)StopDaemon(direct, SIGKILL);
    (void)EndBy(SIGTERM);
}

TEST_F(HazardSignals, a_signal_to_a_child_before_its_exec_leaves_the_daemon_registered) {
    WriteOddService("Never", "never");
    const int trials = Trials(15, 50);
    int before = 0;
    for (int trial = 0; trial < trials; ++trial) {
        StartDaemon();
        const Socket client = Connect();
        ASSERT_TRUE(Send(client, AsMessage(ServdCall(START_SERVICE, Words({1, 0, 0})))));
        const pid_t child = FirstChild();
        ASSERT_NE(child, 0);
        (void)kill(child, SIGTERM);
        before += ReadWhatIsThere("/proc/" + std::to_string(child) + "/comm") == "servd\n" ? 1 : 0;
        PauseMs(20);
        EXPECT_FALSE(HasEnded(daemon));
        EXPECT_TRUE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS));
        (void)EndBy(SIGTERM);
    }
    Measured("%d signals to children, %d of them still before their exec: the daemon stayed registered", trials,
             before);
}

// --- the launch ---

TEST_F(HazardSignals, standard_descriptors_closed_at_launch_are_opened_on_nothing) {
    for (const std::vector<int> &closed : {std::vector<int>{0}, {1}, {2}, {0, 1, 2}}) {
        Launch launch;
        launch.closed = closed;
        StartDaemon(launch);
        for (const int descriptor : closed) {
            EXPECT_EQ(
                std::filesystem::read_symlink("/proc/" + std::to_string(daemon) + "/fd/" + std::to_string(descriptor)),
                "/dev/null");
        }
        EXPECT_LT(CallMs(), 1000);
        (void)EndBy(SIGTERM);
    }
}

TEST_F(HazardSignals, an_entry_of_another_user_gives_the_message_and_status_1) {
    if (geteuid() != 0) GTEST_SKIP() << "needs two users";
    ASSERT_TRUE(pmap_set(SERVDAEMONPROG, SERVDAEMONVERS, IPPROTO_TCP, 9));
    // setpriv under the daemon's name, so that the process it becomes is found by it.
    const std::string otherUser = folder + "/servd";
    std::filesystem::create_symlink("/usr/bin/setpriv", otherUser);
    const DetachedDaemon launched = StartDetached({.command = {otherUser, "--reuid=65534", "--regid=65534",
                                                               "--clear-groups", CopyForAnyUser(ProgramPath("servd"))},
                                                   .errorFile = folder + "/error"});
    EXPECT_EQ(WEXITSTATUS(launched.launcherStatus), 1);
    ASSERT_NE(launched.process, 0);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(launched.process)), 1);
    EXPECT_EQ(ReadFile(folder + "/error"), "unable to register (SERVDAEMONPROG, SERVDAEMONVERS, tcp).");
    EXPECT_TRUE(pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS));
}
