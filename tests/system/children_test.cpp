// SPDX-License-Identifier: MIT
// The daemon's children: what services inherit, how ended ones are taken, and what a signal does to a child that is no
// service yet.
#include "tests/support/host.h"
#include "tests/support/service_image.h"

#include "servd/limits.h"
#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Children : testing::Test {
    Children() { StartRegistryDaemon(MakeScratchFolder() + "/registry"); }
    ~Children() override { EndAllProcesses(); }
};

std::int32_t Start(const char *name) {
    const RpcClient client = DialServiceDaemon();
    auto opened = CallForAnswer(client.get(), servd_SERV_OPEN_SERVICE{.name = Text(name), .desiredAccess = 0});
    EXPECT_EQ(opened->status, 0);
    return CallForAnswer(client.get(),
                         servd_SERV_START_SERVICE{.handle = opened->handle, .arglist = nullptr, .argc = 0})
        ->status;
}

// Reports the service stopped, as its runtime would, so that it can be started again.
void ReportStopped(std::int32_t handle) {
    const RpcClient client = DialServiceDaemon();
    svd_status_t status = {};
    status.dwCurrentState = SERVICE_STOPPED;
    auto set = CallForAnswer(client.get(), servd_SERV_SET_STATUS_SERVICE{.handle = handle, .serviceStatus = status});
    EXPECT_EQ(set->status, 0);
}

bool Serves() { return IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS) && WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS); }

TEST_F(Children, services_inherit_no_socket_and_no_signal_setting_of_the_daemon) {
    const ServiceImage automatic = MakeServiceImage("automatic");
    const ServiceImage later = MakeServiceImage("later");
    WriteService("Automatic", SERVICE_AUTO_START, automatic.path);
    WriteService("Later", SERVICE_DEMAND_START, later.path);
    StartServiceDaemon();
    EXPECT_EQ(Start("Later"), 0);
    for (const ServiceImage &image : {automatic, later}) {
        EXPECT_EQ(LogLine(image, "signals"), "0000000000000000 0000000000000000 0000000000000000");
        for (const std::string &descriptor : LogLines(image, "descriptor")) {
            EXPECT_THAT(descriptor, Not(HasSubstr("socket:")));
        }
        EXPECT_EQ(LogLine(image, "shell"), "/bin/csh");
    }
}

TEST_F(Children, an_account_is_switched_to_and_an_unknown_one_answers_3) {
    if (geteuid() != 0) GTEST_SKIP() << "switching users takes root";
    const ServiceImage image = MakeServiceImage("account");
    WriteService("Known", SERVICE_DEMAND_START, image.path, {{"DependOnService", REG_SZ, Sz("nobody")}});
    WriteService("Unknown", SERVICE_DEMAND_START, image.path, {{"DependOnService", REG_SZ, Sz("no-such-user")}});
    const pid_t daemon = StartServiceDaemon();
    EXPECT_EQ(Start("Unknown"), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(HasLog(image));
    EXPECT_THAT(ZombiesOf(daemon), IsEmpty());
    EXPECT_EQ(Start("Known"), 0);
    EXPECT_EQ(LogLine(image, "uid"), std::to_string(getpwnam("nobody")->pw_uid));
    EXPECT_EQ(LogLine(image, "gid"), std::to_string(getpwnam("nobody")->pw_gid));
}

std::size_t CountIn(const std::string &folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST_F(Children, ended_services_leave_no_zombie_no_thread_and_no_descriptor) {
    const ServiceImage image = MakeServiceImage("short", "--exit-started");
    WriteService("Short", SERVICE_DEMAND_START, image.path);
    const pid_t daemon = StartServiceDaemon();
    const std::string folder = "/proc/" + std::to_string(daemon);
    ASSERT_EQ(Start("Short"), 0);
    ReportStopped(1);
    ASSERT_TRUE(WaitUntil([&] { return ChildrenOf(daemon).empty(); }));
    const std::size_t threads = CountIn(folder + "/task");
    const std::size_t descriptors = CountIn(folder + "/fd");
    for (int trial = 0; trial < 30; trial++) {
        ASSERT_EQ(Start("Short"), 0);
        ReportStopped(1);
    }
    EXPECT_TRUE(WaitUntil([&] { return ChildrenOf(daemon).empty() && ZombiesOf(daemon).empty(); }));
    EXPECT_TRUE(WaitUntil([&] { return CountIn(folder + "/task") <= threads; }));
    EXPECT_TRUE(WaitUntil([&] { return CountIn(folder + "/fd") <= descriptors; }));
}

TEST_F(Children, services_outlive_the_daemon) {
    const ServiceImage image = MakeServiceImage("outliving");
    WriteService("Alpha", SERVICE_AUTO_START, image.path);
    const pid_t daemon = StartServiceDaemon();
    const pid_t service = std::stoi(LogLine(image, "pid"));
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_FALSE(HasEnded(service));
    EXPECT_TRUE(WaitForProgram(SERVDAEMONPROG + static_cast<std::uint32_t>(service), 1));
}

// A daemon with a module of ours loaded before its libraries.
Launch WithModule(const std::string &name, const std::string &setting) {
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return {
        .environment = {"LD_PRELOAD=" + (folder / name).string(), setting, "ASAN_OPTIONS=verify_asan_link_order=0"}};
}

// Each ended service has nobody to wait for it then.
TEST_F(Children, where_no_thread_can_be_had_ends_are_taken_at_the_next_start_and_the_next_control) {
    const ServiceImage image = MakeServiceImage("short", "--exit-started");
    WriteService("Short", SERVICE_DEMAND_START, image.path);
    const std::string noThreads = MakeScratchFolder() + "/no-threads";
    WriteFile(noThreads, "");
    const pid_t daemon = StartServiceDaemon(WithModule("libno_threads.so", "TV_NO_THREADS=" + noThreads));
    const auto startsLeaveZombies = [&](int starts) {
        for (int start = 0; start < starts; ++start) {
            ASSERT_EQ(Start("Short"), 0);
            ReportStopped(1);
        }
        ASSERT_TRUE(WaitUntil([&] { return ChildrenOf(daemon).empty(); }));
        ASSERT_THAT(ZombiesOf(daemon), Not(IsEmpty())) << "the threads were not refused";
    };
    startsLeaveZombies(5);
    const RpcClient client = DialServiceDaemon();
    (void)CallForAnswer(client.get(), servd_SERV_CONTROL_SERVICE{.handle = 1, .control = SERVICE_CONTROL_INTERROGATE});
    EXPECT_THAT(ZombiesOf(daemon), IsEmpty());

    startsLeaveZombies(5);
    std::filesystem::remove(noThreads);
    ASSERT_EQ(Start("Short"), 0);
    EXPECT_TRUE(WaitUntil([&] { return ChildrenOf(daemon).empty() && ZombiesOf(daemon).empty(); }));
}

// A daemon whose children signal themselves before their exec, as somebody else may.
Launch SignallingChildren(const std::string &when) {
    return WithModule("libsignal_child.so", "TV_SIGNAL_CHILD=" + when);
}

// The daemon's own handler would take the daemon's entry out of the port mapper if it ran in the child.
struct SignalledChildren : Children, testing::WithParamInterface<const char *> {};

TEST_P(SignalledChildren, a_child_that_is_told_to_end_before_its_exec_ends_alone) {
    const ServiceImage image = MakeServiceImage("signalled");
    WriteService("Alpha", SERVICE_DEMAND_START, image.path);
    const pid_t daemon = StartServiceDaemon(SignallingChildren(GetParam()));
    EXPECT_EQ(Start("Alpha"), ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_FALSE(HasLog(image)) << "the child was not signalled";
    EXPECT_TRUE(Serves());
    EXPECT_FALSE(HasEnded(daemon));
    EXPECT_THAT(ChildrenOf(daemon), IsEmpty());
    EXPECT_TRUE(WaitUntil([&] { return ZombiesOf(daemon).empty(); }));
}

INSTANTIATE_TEST_SUITE_P(signalled, SignalledChildren, testing::Values("first", "last"),
                         [](const auto &instance) { return std::string(instance.param); });

// Behind the user switch the child may be halted by its own user.
TEST_F(Children, a_child_that_is_halted_before_its_exec_is_given_up_in_seconds) {
    const ServiceImage image = MakeServiceImage("halted");
    WriteService("Alpha", SERVICE_DEMAND_START, image.path, {{"DependOnService", REG_SZ, Sz("nobody")}});
    const pid_t daemon = StartServiceDaemon(SignallingChildren("halt"));
    for (int trial = 0; trial < 2; ++trial) {
        const std::int64_t begin = MonotonicMs();
        EXPECT_EQ(Start("Alpha"), ERROR_PATH_NOT_FOUND);
        EXPECT_LT(MonotonicMs() - begin, execLimitMs + 2000);
        EXPECT_FALSE(HasLog(image)) << "the child was not halted";
        EXPECT_THAT(ChildrenOf(daemon), IsEmpty());
        EXPECT_THAT(ZombiesOf(daemon), IsEmpty());
        EXPECT_TRUE(Serves());
    }
}

TEST_F(Children, a_daemon_that_waits_for_a_halted_child_can_be_ended) {
    WriteService("Alpha", SERVICE_DEMAND_START, MakeServiceImage("halted").path);
    const pid_t daemon = StartServiceDaemon(SignallingChildren("halt"));
    std::thread starting([] {
        const RpcClient client = DialServiceDaemon();
        const servd_SERV_START_SERVICE start = {.handle = 1, .arglist = nullptr, .argc = 0};
        servd_SERV_START_SERVICE_RETURN result = {};
        EXPECT_NE(CallProcedure(client.get(), start, &result, answerTimeout), RPC_SUCCESS);
    });
    EXPECT_TRUE(WaitUntil([&] { return !ChildrenOf(daemon).empty(); }));
    const std::int64_t begin = MonotonicMs();
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_LT(MonotonicMs() - begin, 1000);
    starting.join();
    EXPECT_LT(MonotonicMs() - begin, 2000) << "nobody holds the client's connection";
}

TEST_F(Children, a_service_that_ends_its_process_group_ends_neither_the_daemon_nor_other_services) {
    const std::string folder = MakeScratchFolder();
    WriteFile(folder + "/group.csh", "exec /bin/sh -c 'kill -9 0'\n");
    const ServiceImage other = MakeServiceImage("other");
    WriteService("Group", SERVICE_DEMAND_START, folder + "/group.csh");
    WriteService("Other", SERVICE_DEMAND_START, other.path);
    const pid_t daemon = StartServiceDaemon();
    ASSERT_EQ(Start("Other"), 0);
    EXPECT_EQ(Start("Group"), ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_FALSE(HasEnded(daemon));
    EXPECT_TRUE(Serves());
    const pid_t service = std::stoi(LogLine(other, "pid"));
    EXPECT_THAT(ChildrenOf(daemon), ElementsAre(service));
    EXPECT_EQ(getpgid(service), service);
}

} // namespace
