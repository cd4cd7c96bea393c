// SPDX-License-Identifier: MIT
// hazard: a real servd over a real tvregd for the tests that attack it, and what each of them measures.
//
// Every test prints what it measured; with TV_LONG=1 in the environment it takes its full number of trials.
#pragma once

#include "tests/support/host.h"
#include "tests/support/raw_rpc.h"
#include "tests/support/requests.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

constexpr std::size_t mebibyte = std::size_t{1} << 20;

inline bool IsLong() { return std::getenv("TV_LONG") != nullptr; }
inline int Trials(int brief, int full) { return IsLong() ? full : brief; }

// Prints a measured figure beneath the test's name.
template <typename... Values>
void Measured(const char *format, Values... values) {
    std::printf("    measured: ");
    std::printf(format, values...);
    std::printf("\n");
    (void)std::fflush(stdout);
}

// A soft limit for programs started while it lives.
struct LimitGuard {
    decltype(RLIMIT_NOFILE) resource;
    rlimit before = {};

    LimitGuard(decltype(RLIMIT_NOFILE) limited, rlim_t value) : resource(limited) {
        (void)getrlimit(resource, &before);
        const rlimit lowered = {value, before.rlim_max};
        (void)setrlimit(resource, &lowered);
    }
    LimitGuard(const LimitGuard &) = delete;
    LimitGuard &operator=(const LimitGuard &) = delete;
    ~LimitGuard() { (void)setrlimit(resource, &before); }
};

// Starts a tvregd and a servd for each test, and at its end has servd live and end with status 0 at SIGTERM.
struct Hazard : testing::Test {
    static inline std::string folder;
    static inline pid_t registry = 0;
    pid_t daemon = 0;
    std::uint16_t port = 0;

    static void SetUpTestSuite() {
        folder = MakeScratchFolder();
        StartRegistry();
    }
    static void TearDownTestSuite() { EndAllProcesses(); }

    static void StartRegistry() {
        registry = StartProgram({.command = {ProgramPath("tvregd"), "--lazy", "--database", folder + "/registry.db"}});
        if (!WaitForProgram(REGDAEMONPROG, REGDAEMONVERS)) FAIL() << "tvregd does not answer";
    }

    void StartDaemon(Launch launch = {}) {
        daemon = StartServiceDaemon(std::move(launch));
        port = raw::PortOf(SERVDAEMONPROG, SERVDAEMONVERS);
    }

    void SetUp() override { StartDaemon(); }

    void TearDown() override {
        if (daemon == 0) return;
        ASSERT_FALSE(HasEnded(daemon)) << "the daemon has ended: " << WaitForEnd(daemon);
        EXPECT_EQ(StopDaemon(daemon), 0);
    }

    raw::Socket Connect(int receiveBytes = 0) const { return raw::ConnectTo(port, receiveBytes); }

    // Starts the daemon again, with its new descriptor or stack limit.
    void Restart(decltype(RLIMIT_NOFILE) resource, rlim_t value) {
        EXPECT_EQ(StopDaemon(daemon), 0);
        const LimitGuard limit(resource, value);
        StartDaemon();
    }

    // How long a new client waits for its answer, connecting included.
    double CallMs() const {
        const raw::Clock::time_point start = raw::Clock::now();
        const raw::Socket client = Connect();
        EXPECT_TRUE(raw::Send(client, raw::AsMessage(ServdCall(DUMMY_SERVICE, Words({6})))));
        EXPECT_EQ(raw::ReadMessage(client), ServdAnswer(Words({7})));
        return raw::MsSince(start);
    }

    // The worst of so many calls, in the best round of them.
    double WorstCallMs(int calls = 20) const {
        return raw::BestMs([&] {
            double worst = 0;
            for (int i = 0; i < calls; ++i) {
                worst = std::max(worst, CallMs());
            }
            return worst;
        });
    }

    // --- services ---

    // Writes a service whose process is odd_service in that mode.
    static void WriteOddService(const std::string &name, const std::string &mode, std::uint32_t startType = 3,
                                const std::vector<RegistryValue> &further = {}) {
        const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        const std::string image = folder + "/" + name + ".csh";
        WriteFile(image, "exec " + (here / "odd_service").string() + " " + mode + "\n");
        WriteService(name, startType, image, further);
    }

    // One call on a connection of its own. Returns the result's bytes.
    std::string Ask(std::uint32_t procedure, const std::string &argument) const {
        const raw::Socket client = Connect();
        const timeval patience = {60, 0};
        (void)setsockopt(client.descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_TRUE(raw::Send(client, raw::AsMessage(ServdCall(procedure, argument))));
        const std::string answer = raw::ReadMessage(client);
        const std::string success = ServdAnswer("");
        EXPECT_EQ(answer.substr(0, success.size()), success) << "procedure " << procedure;
        return answer.substr(std::min(answer.size(), success.size()));
    }

    // Waits for a child of a daemon that has none, and finds it on its way to the exec.
    pid_t FirstChild() const {
        const std::string list = "/proc/" + std::to_string(daemon) + "/task/" + std::to_string(daemon) + "/children";
        pid_t child = 0;
        for (const raw::Clock::time_point start = raw::Clock::now(); child == 0 && raw::MsSince(start) < 5000;) {
            child = std::atoi(ReadWhatIsThere(list).c_str());
        }
        return child;
    }

    std::uint32_t HandleOf(const std::string &name) const {
        const std::string result = Ask(OPEN_SERVICE, XdrString(name) + Words({0xF003F}));
        EXPECT_EQ(raw::WordOf(result, 0), 0U) << name;
        return raw::WordOf(result, 1);
    }

    std::uint32_t StartByName(const std::string &name) const {
        return raw::WordOf(Ask(START_SERVICE, Words({HandleOf(name), 0, 0})), 0);
    }

    // Waits until the daemon has no more descriptors than that. Returns their number.
    std::size_t SettledDescriptors(std::size_t expected) const {
        (void)WaitUntil([&] { return raw::DescriptorsOf(daemon) <= expected; }, 5000);
        return raw::DescriptorsOf(daemon);
    }
};
