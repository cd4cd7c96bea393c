// SPDX-License-Identifier: MIT
// Services that misbehave, end at once or come in thousands, and a port mapper that stops: the daemon's waits are
// bounded, and nothing piles up.
#include "tests/support/hazard.h"

#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <fcntl.h>
#include <signal.h>

#include <sstream>
#include <thread>

using namespace raw;

namespace {

struct HazardServices : Hazard {
    void SetUp() override {}

    void TearDown() override {
        Hazard::TearDown();
        if (KeyExists(servicesKey)) DeleteKey(servicesKey);
        for (const pid_t service : ChildrenOf(getpid(), "odd_service")) {
            (void)StopDaemon(service, SIGKILL);
        }
    }

    std::string StateOf(std::uint32_t handle) const { return Ask(QUERY_STATUS_SERVICE, Words({handle})); }

    void ReportStopped(std::uint32_t handle) const {
        EXPECT_EQ(Ask(SET_STATUS_SERVICE, Words({handle, 0x10, 1, 0, 0, 0, 0, 0})), Words({0}));
    }

    // Starts a service of a shared process, and then another of its image, time and again: each start leaves a client
    // to the first one's process over, which is neither used nor destroyed.
    std::uint32_t sibling = 0;
    std::uint32_t other = 0;

    void StartSibling(Launch launch) {
        const std::vector<RegistryValue> shared = {{"Type", REG_DWORD, Dword(SERVICE_WIN32_SHARE_PROCESS)}};
        const std::string mark = MakeScratchFolder() + "/started";
        WriteOddService("Sibling", "first " + mark, 3, shared);
        WriteService("Other", 3, folder + "/Sibling.csh", shared);
        StartDaemon(std::move(launch));
        sibling = HandleOf("Sibling");
        other = HandleOf("Other");
        ASSERT_EQ(WordOf(Ask(START_SERVICE, Words({sibling, 0, 0})), 0), 0U);
        EXPECT_EQ(Ask(SET_STATUS_SERVICE, Words({sibling, 0x20, 4, 1, 0, 0, 0, 0})), Words({0}));
    }

    void StartOther(int times) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(WordOf(Ask(START_SERVICE, Words({other, 0, 0})), 0), 0U) << "start " << i;
            ReportStopped(other);
        }
    }
};

// Seconds that a start of the service takes, which must be refused as unreachable.
double RefusedStartSeconds(const HazardServices &host, const std::string &name) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(host.StartByName(name), std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    return MsSince(start) / 1000;
}

} // namespace

// --- what services inherit ---

TEST_F(HazardServices, services_see_none_of_the_daemon_s_sockets) {
    const std::string file = folder + "/inherited";
    WriteOddService("State", "state " + file);
    StartDaemon();
    const Socket client = Connect(); // accepted by the time the start is answered
    ASSERT_EQ(StartByName("State"), 0U);
    ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(file); }));
    const std::string state = ReadFile(file);
    EXPECT_EQ(state.find("socket:"), std::string::npos) << state;
    EXPECT_EQ(state.find("eventpoll"), std::string::npos) << state;
}

// The shell closes what it inherits, today; so the flags themselves are looked at, too.
TEST_F(HazardServices, every_socket_of_the_daemon_is_closed_on_exec) {
    WriteOddService("Never", "never");
    StartDaemon();
    const Socket client = Connect();
    ASSERT_TRUE(Send(client, AsMessage(ServdCall(START_SERVICE, Words({1, 0, 0})))));
    int sockets = 0;
    for (int look = 0; look < 20; ++look) {
        const std::string process = "/proc/" + std::to_string(daemon);
        for (const auto &entry : std::filesystem::directory_iterator(process + "/fd")) {
            const auto target = [&entry] {
                std::error_code gone;
                return std::filesystem::read_symlink(entry.path(), gone).string();
            };
            const std::string before = target();
            if (!before.starts_with("socket:") && before != "anon_inode:[eventpoll]") continue;
            const std::string info = ReadWhatIsThere(process + "/fdinfo/" + entry.path().filename().string());
            const std::size_t flags = info.find("flags:");
            if (flags == std::string::npos || target() != before) continue; // closed meanwhile
            EXPECT_NE(std::stoul(info.substr(flags + 6), nullptr, 8) & O_CLOEXEC, 0U) << before << ": " << info;
            ++sockets;
        }
        PauseMs(20);
    }
    EXPECT_GE(sockets, 20 * 4) << "the listener, its epoll set, the registry, the client";
}

TEST_F(HazardServices, a_stopped_daemon_refuses_clients_at_once_while_its_services_live) {
    WriteOddService("Plain", "plain");
    for (const bool bySignal : {true, false}) {
        StartDaemon();
        ASSERT_EQ(StartByName("Plain"), 0U);
        if (bySignal) {
            EXPECT_EQ(StopDaemon(daemon), 0);
        } else {
            EXPECT_EQ(RunProgram({.command = {ProgramPath("servd"), "stop"}}), 0);
            EXPECT_EQ(WaitForEnd(daemon), 0);
        }
        daemon = 0;
        EXPECT_FALSE(ChildrenOf(getpid(), "odd_service").empty());
        const auto refusedMs = [this] {
            const Clock::time_point start = Clock::now();
            EXPECT_LT(Connect().descriptor, 0);
            return MsSince(start);
        };
        EXPECT_LT(BestMs(refusedMs), promptMs);
    }
}

// --- many ---

TEST_F(HazardServices, short_lived_services_leave_no_thread_mapping_or_zombie) {
    WriteOddService("Brief", "brief");
    StartDaemon();
    const std::uint32_t handle = HandleOf("Brief");
    const auto startOnce = [&] {
        ASSERT_EQ(WordOf(Ask(START_SERVICE, Words({handle, 0, 0})), 0), 0U);
        ReportStopped(handle);
    };
    for (int i = 0; i < 10; ++i) {
        startOnce();
    }
    const std::size_t mappings = MappingsOf(daemon);
    const std::size_t descriptors = DescriptorsOf(daemon);
    const std::size_t resident = ResidentBytesOf(daemon);
    const int services = Trials(100, 2000);
    for (int i = 0; i < services; ++i) {
        startOnce();
    }
    EXPECT_TRUE(WaitUntil([&] { return ZombiesOf(daemon).empty(); })) << ZombiesOf(daemon).size() << " zombies";
    EXPECT_LE(MappingsOf(daemon), mappings + 8);
    EXPECT_LE(SettledDescriptors(descriptors), descriptors);
    EXPECT_LT(ResidentBytesOf(daemon), resident + mebibyte);
    Measured("%d services that end at once: mappings %zu before and %zu after, descriptors %zu and %zu, no zombie",
             services, mappings, MappingsOf(daemon), descriptors, DescriptorsOf(daemon));
}

namespace {

// Starts the service, waits until it runs, stops it by a control and waits until it has stopped.
void StartAndStop(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    BOOL complete = FALSE;
    // A plain query before the first report would find the service dead.
    const auto isIn = [&](DWORD state) {
        return tvQueryServiceStatusPassive(service, &status, &complete) != FALSE && status.dwCurrentState == state;
    };
    ASSERT_TRUE(StartServiceA(service, 0, nullptr)) << GetLastError();
    ASSERT_TRUE(WaitUntil([&] { return isIn(SERVICE_RUNNING); })) << status.dwCurrentState;
    ASSERT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status)) << GetLastError();
    ASSERT_TRUE(WaitUntil([&] { return isIn(SERVICE_STOPPED); })) << status.dwCurrentState;
    ASSERT_EQ(status.dwWin32ExitCode, 0U) << "it has stopped by itself";
}

} // namespace

TEST_F(HazardServices, services_started_and_stopped_by_controls_leave_nothing_behind) {
    const std::string image = folder + "/Sample.csh";
    WriteFile(image, "exec " + ProgramPath("tvsample") + " --log /dev/null\n");
    WriteService("Sample", 3, image);
    StartDaemon();
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    const SC_HANDLE service = OpenServiceA(manager, "Sample", SERVICE_ALL_ACCESS);
    ASSERT_NE(service, nullptr) << GetLastError();
    const auto startAndStop = [service](int times) {
        for (int i = 0; i < times && !HasFatalFailure(); ++i) {
            StartAndStop(service);
        }
    };
    startAndStop(10);
    PauseMs(100); // the last process ends, and its connection with it
    const std::size_t mappings = MappingsOf(daemon);
    const std::size_t descriptors = DescriptorsOf(daemon);
    const std::size_t resident = ResidentBytesOf(daemon);
    const int times = Trials(60, 2000);
    const Clock::time_point start = Clock::now();
    startAndStop(times);
    const double each = MsSince(start) / times;
    EXPECT_TRUE(WaitUntil([&] { return ChildrenOf(daemon).empty(); })) << "each process has ended";
    EXPECT_TRUE(WaitUntil([&] { return ZombiesOf(daemon).empty(); })) << ZombiesOf(daemon).size() << " zombies";
    EXPECT_LE(MappingsOf(daemon), mappings + 8);
    EXPECT_LE(SettledDescriptors(descriptors), descriptors);
    EXPECT_LT(ResidentBytesOf(daemon), resident + mebibyte);
    Measured("%d starts and stops, %.1f ms each: resident %zu KiB before and %zu after, mappings %zu and %zu, "
             "descriptors %zu and %zu, no zombie",
             times, each, resident / 1024, ResidentBytesOf(daemon) / 1024, mappings, MappingsOf(daemon), descriptors,
             DescriptorsOf(daemon));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_TRUE(CloseServiceHandle(manager));
}

// --- siblings in a shared process ---

TEST_F(HazardServices, clients_left_over_fill_no_descriptor_table) {
    const unsigned limit = IsLong() ? 1024 : 120;
    const int starts = Trials(160, 5000);
    StartSibling({.descriptors = limit});
    StartOther(starts);
    const std::size_t descriptors = DescriptorsOf(daemon);
    EXPECT_GT(descriptors, limit / 2) << "only what is too much gives way";
    EXPECT_LE(descriptors, limit - 32) << "some are kept in reserve";
    EXPECT_EQ(WordOf(Ask(CONTROL_SERVICE, Words({sibling, SERVICE_CONTROL_INTERROGATE})), 0), 0U);
    Measured("%d starts beside a sibling at a limit of %u: %zu descriptors", starts, limit, descriptors);

    std::vector<Socket> clients; // they need room, too
    for (unsigned i = 0; i < limit; ++i) {
        clients.push_back(Connect());
        (void)Send(clients.back(), "\x80");
    }
    EXPECT_LT(WorstCallMs(), promptMs);
    StartOther(1);
    EXPECT_LE(DescriptorsOf(daemon), limit - 32);
}

namespace {

// The soft and the hard descriptor limit of a process.
std::pair<rlim_t, rlim_t> DescriptorLimitsOf(pid_t process) {
    const std::string limits = ReadFile("/proc/" + std::to_string(process) + "/limits");
    std::istringstream line(limits.substr(limits.find("Max open files") + std::string("Max open files").size()));
    std::pair<rlim_t, rlim_t> softAndHard;
    line >> softAndHard.first >> softAndHard.second;
    return softAndHard;
}

} // namespace

TEST_F(HazardServices, the_soft_descriptor_limit_is_raised_and_services_get_it_as_it_was) {
    const unsigned soft = 64;
    rlimit own = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &own), 0);
    ASSERT_GT(own.rlim_max, soft);
    {
        const LimitGuard limit(RLIMIT_NOFILE, soft);
        StartSibling({});
    }
    EXPECT_EQ(DescriptorLimitsOf(daemon), std::pair(own.rlim_max, own.rlim_max));
    const std::vector<pid_t> services = ChildrenOf(daemon, "odd_service");
    ASSERT_EQ(services.size(), 1U);
    EXPECT_EQ(DescriptorLimitsOf(services.front()), std::pair(rlim_t{soft}, own.rlim_max));
}

// --- services that do not answer ---

namespace {

void ExpectStartGivenUp(HazardServices *host, const char *mode) {
    HazardServices::WriteOddService("Odd", mode);
    host->StartDaemon();
    const double seconds = RefusedStartSeconds(*host, "Odd");
    EXPECT_GT(seconds, 24);
    EXPECT_LT(seconds, 32) << "the call's 25 s, and what the process takes to come up on a busy machine";
    Measured("%s: the start is given up after %.1f s", mode, seconds);
    EXPECT_LT(host->WorstCallMs(), promptMs);
    EXPECT_EQ(WordOf(host->StateOf(host->HandleOf("Odd")), 2), 2U) << "start pending";
}

} // namespace

// Memory is a peer's to take only as far as what it has to say needs it.
TEST_F(HazardServices, a_service_that_answers_a_megabyte_is_not_listened_to) {
    WriteOddService("Odd", "long");
    StartDaemon();
    EXPECT_LT(RefusedStartSeconds(*this, "Odd"), 20) << "refused as it comes, not at the end of a time-out";
    EXPECT_LT(WorstCallMs(), promptMs);
}

TEST_F(HazardServices, a_service_that_answers_byte_by_byte_is_given_up_at_the_time_out) {
    ExpectStartGivenUp(this, "drip");
}

TEST_F(HazardServices, a_service_that_answers_somebody_else_is_given_up_at_the_time_out) {
    ExpectStartGivenUp(this, "wrong");
}

TEST_F(HazardServices, a_service_that_never_answers_is_given_up_at_the_time_out) {
    if (!IsLong()) GTEST_SKIP() << "takes 25 s; set TV_LONG";
    ExpectStartGivenUp(this, "silent");
}

TEST_F(HazardServices, a_child_killed_before_its_exec_spoils_no_answer) {
    WriteOddService("Never", "never");
    WriteService("Other", 3, "/other", {{"DisplayName", REG_SZ, Sz("The other")}});
    StartDaemon();
    const Socket client = Connect();
    const timeval patience = {60, 0};
    (void)setsockopt(client.descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ASSERT_TRUE(Send(client, AsMessage(ServdCall(START_SERVICE, Words({1, 0, 0})))));
    const pid_t child = FirstChild();
    ASSERT_NE(child, 0);
    (void)kill(child, SIGKILL);
    (void)kill(registry, SIGSTOP); // whatever the child had asked would be answered later
    PauseMs(200);
    (void)kill(registry, SIGCONT);
    EXPECT_EQ(ReadMessage(client), ServdAnswer(Words({ERROR_SERVICE_REQUEST_TIMEOUT})));
    const std::string configuration = Ask(QUERY_CONFIG_SERVICE, Words({HandleOf("Other")}));
    EXPECT_EQ(WordOf(configuration, 0), 0U);
    EXPECT_NE(configuration.find("The other"), std::string::npos);
}

// --- the port mapper ---

TEST_F(HazardServices, a_stopped_port_mapper_delays_a_start_and_nothing_else_breaks) {
    WriteOddService("Plain", "plain");
    StartDaemon();
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_NE(portMapper, 0);
    (void)kill(portMapper, SIGSTOP);
    std::thread wakes([portMapper] {
        PauseMs(12000);
        (void)kill(portMapper, SIGCONT);
    });
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(StartByName("Plain"), 0U);
    const double seconds = MsSince(start) / 1000;
    wakes.join();
    EXPECT_LT(seconds, 24);
    EXPECT_LT(WorstCallMs(), promptMs);
    Measured("port mapper stopped for 12 s: a start takes %.1f s and succeeds", seconds);
    const std::uint32_t handle = HandleOf("Plain");
    (void)Ask(SET_STATUS_SERVICE, Words({handle, 0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}));
    (void)kill(portMapper, SIGSTOP);
    const Clock::time_point controls = Clock::now();
    EXPECT_EQ(WordOf(Ask(CONTROL_SERVICE, Words({handle, SERVICE_CONTROL_INTERROGATE})), 0),
              std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    const double controlSeconds = MsSince(controls) / 1000;
    EXPECT_LT(controlSeconds, 12);
    Measured("port mapper stopped: a control answers 1053 after %.1f s", controlSeconds);
    const Clock::time_point ends = Clock::now();
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_LT(MsSince(ends), 1000);
    Measured("port mapper stopped: the daemon ends in %.0f ms with status 0", MsSince(ends));
    daemon = 0;
    (void)kill(portMapper, SIGCONT);
}

// Symptom: a start held the daemon, and everybody, for three minutes. Cause: each of its sixteen attempts waited as
// long as a single one may.
TEST_F(HazardServices, a_port_mapper_that_hangs_holds_a_start_for_half_a_minute_at_most) {
    WriteOddService("Plain", "plain");
    StartDaemon();
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_NE(portMapper, 0);
    const std::string handle = Words({HandleOf("Plain")});
    (void)kill(portMapper, SIGSTOP);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WordOf(Ask(START_SERVICE, handle + Words({0, 0})), 0), std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    const double seconds = MsSince(start) / 1000;
    (void)kill(portMapper, SIGCONT);
    EXPECT_GT(seconds, 15) << "the pauses between the attempts alone";
    EXPECT_LT(seconds, 31) << "thirty, and what the fork takes on a busy machine";
    Measured("port mapper stopped: a start answers 1053 after %.1f s", seconds);
    EXPECT_LT(WorstCallMs(), promptMs);
}

TEST_F(HazardServices, a_process_that_accepts_nobody_holds_its_start_for_half_a_minute_at_most) {
    if (!IsLong()) GTEST_SKIP() << "takes 29 s; set TV_LONG";
    WriteOddService("Full", "full");
    StartDaemon();
    const double seconds = RefusedStartSeconds(*this, "Full");
    EXPECT_GT(seconds, 15) << "the pauses between the attempts alone";
    EXPECT_LT(seconds, 31) << "thirty, and what the process takes to come up on a busy machine";
    Measured("a full accept queue: a start answers 1053 after %.1f s", seconds);
    EXPECT_LT(WorstCallMs(), promptMs);
}

// The last test of this program: the port mapper that comes back knows nobody, this host's tests included.
TEST_F(HazardServices, without_a_port_mapper_a_start_answers_1053_and_the_daemon_lives) {
    WriteOddService("Plain", "plain");
    StartDaemon();
    const pid_t portMapper = ProcessNamed("rpcbind");
    ASSERT_NE(portMapper, 0);
    ASSERT_EQ(kill(portMapper, SIGKILL), 0);
    ASSERT_TRUE(WaitUntil([] { return ProcessNamed("rpcbind") == 0; }));
    const double seconds = RefusedStartSeconds(*this, "Plain");
    EXPECT_LT(seconds, 20);
    ASSERT_EQ(RunProgram({.command = {"/usr/sbin/rpcbind"}}), 0);
    ASSERT_TRUE(WaitUntil([] { return RpcClient(DialPortMapper({htonl(INADDR_LOOPBACK)})) != nullptr; }));
    EXPECT_EQ(StartByName("Plain"), 0U) << "with the port mapper back";
    EXPECT_LT(WorstCallMs(), promptMs);
    Measured("port mapper killed: a start answers 1053 after %.1f s; after its restart starts succeed again", seconds);
    // tvregd is no longer registered: what TearDown asks over the port mapper is done by ending everything instead.
    EXPECT_EQ(StopDaemon(daemon), 0);
    daemon = 0;
    EXPECT_EQ(StopDaemon(registry), 0);
    std::filesystem::remove(folder + "/registry.db");
    StartRegistry();
}
