// SPDX-License-Identifier: MIT
// The daemon's process from its launch to its end: the launcher, the stop command, registration, initialisation,
// signals.
#include "tests/support/host.h"

#include "tv/winerror.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rpc/pmap_clnt.h>
#include <sys/wait.h>

#include <csignal>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// For a program that lacks what the leak checker of a sanitizer build needs.
const std::vector<std::string> withoutLeakCheck = {"ASAN_OPTIONS=detect_leaks=0"};

Launch Servd(const std::vector<std::string> &arguments = {}) {
    Launch launch;
    launch.command = {ProgramPath("servd")};
    launch.command.insert(launch.command.end(), arguments.begin(), arguments.end());
    return launch;
}

bool IsServdRegistered() { return IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS); }

std::int32_t InitStatus() {
    const RpcClient client = DialServiceDaemon();
    return CallForAnswer(client.get(), servd_SERV_CONNECT_SERVICE{.machineName = Text("")})->status;
}

// The key names that a listing of all services shows.
std::vector<std::string> ListedServices() {
    const RpcClient client = DialServiceDaemon();
    auto reply = CallForAnswer(
        client.get(),
        servd_SERV_ENUM_STATUS_SERVICE{.resumeIndex = 0, .typeFilter = 0x30, .stateFilter = 3, .bufferBytes = 100000});
    std::vector<std::string> names;
    for (const svd_enum_status_list_t *at = reply->services; at != nullptr; at = at->next) {
        names.emplace_back(at->name);
    }
    return names;
}

struct LifeCycle : ::testing::Test {
    std::string folder = MakeScratchFolder();
    pid_t registry = StartRegistryDaemon(folder + "/registry.db");

    void TearDown() override { EndAllProcesses(); }
};

// --- launch ---

TEST_F(LifeCycle, the_launching_process_ends_with_status_1_deliberate) {
    const DetachedDaemon daemon = StartDetached(Servd());
    EXPECT_EQ(WEXITSTATUS(daemon.launcherStatus), 1);
    EXPECT_NE(daemon.process, 0);
}

TEST_F(LifeCycle, a_launcher_that_cannot_fork_ends_with_status_1_too) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run as a user with no process left";
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS); // what another case may have left
    const Ended launcher = RunAndRead({.command = {"/usr/bin/setpriv", "--reuid=65534", "/bin/bash", "-c",
                                                   "ulimit -u 0; exec " + CopyForAnyUser(ProgramPath("servd"))},
                                       .environment = withoutLeakCheck});
    EXPECT_EQ(launcher.status, 1);
    EXPECT_EQ(launcher.error, "");
    EXPECT_FALSE(WaitUntil(IsServdRegistered, 500));
}

TEST_F(LifeCycle, the_daemon_leaves_the_process_group_of_its_launcher) {
    const pid_t daemon = StartServiceDaemon();
    EXPECT_EQ(getpgid(daemon), daemon);
}

TEST_F(LifeCycle, the_daemon_is_registered_while_it_runs_and_not_before) {
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS); // what another case may have left
    ASSERT_FALSE(IsServdRegistered());
    (void)StartServiceDaemon();
    EXPECT_TRUE(IsServdRegistered());
}

TEST_F(LifeCycle, a_stale_entry_in_the_port_mapper_is_replaced) {
    const pid_t first = StartServiceDaemon();
    EXPECT_EQ(WTERMSIG(StopDaemon(first, SIGKILL)), SIGKILL);
    ASSERT_TRUE(IsServdRegistered()) << "nobody removed the entry of the killed daemon";
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), 0);
}

TEST_F(LifeCycle, an_entry_that_another_user_holds_ends_the_daemon_with_1) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to run as two users";
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS); // what another case may have left
    ASSERT_TRUE(pmap_set(SERVDAEMONPROG, SERVDAEMONVERS, IPPROTO_TCP, 9));
    Launch launch = {.command = {"/usr/bin/setpriv", "--reuid=65534", CopyForAnyUser(ProgramPath("servd"))}};
    launch.errorFile = folder + "/errors";
    WriteFile(launch.errorFile, "", 0666);
    const DetachedDaemon daemon = StartDetached(launch, "servd");
    ASSERT_NE(daemon.process, 0);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(daemon.process)), 1);
    EXPECT_EQ(ReadFile(launch.errorFile), "unable to register (SERVDAEMONPROG, SERVDAEMONVERS, tcp).");
    EXPECT_TRUE(pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS));
}

TEST_F(LifeCycle, without_descriptors_no_tcp_service_can_be_made) {
    const std::string errors = folder + "/errors";
    (void)pmap_unset(SERVDAEMONPROG, SERVDAEMONVERS); // what another case may have left
    // Room for the listening socket alone, whatever this process has inherited.
    const std::string starve = "for d in {3..255}; do eval \"exec $d>&-\"; done; ulimit -n 4; exec ";
    Launch launch = {.command = {"/bin/bash", "-c", starve + ProgramPath("servd")}, .environment = withoutLeakCheck};
    launch.errorFile = errors;
    const DetachedDaemon daemon = StartDetached(launch, "servd");
    ASSERT_NE(daemon.process, 0);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(daemon.process)), 1);
    EXPECT_EQ(ReadFile(errors), "cannot create tcp service.");
    EXPECT_FALSE(IsServdRegistered());
}

// --- the stop command ---

TEST_F(LifeCycle, stop_ends_the_daemon_with_0_and_leaves_its_entry) {
    const pid_t daemon = StartServiceDaemon();
    EXPECT_EQ(WEXITSTATUS(RunProgram(Servd({"stop"}))), 0);
    const int status = WaitForEnd(daemon);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(IsServdRegistered());
}

TEST_F(LifeCycle, stop_stops_wherever_it_stands_and_starts_nothing) {
    const pid_t daemon = StartServiceDaemon();
    const DetachedDaemon stopper = StartDetached(Servd({"-x", "now", "stop"}));
    EXPECT_EQ(WEXITSTATUS(stopper.launcherStatus), 0);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(daemon)), 0);
    EXPECT_THAT(ChildrenOf(getpid(), "servd"), IsEmpty());
}

TEST_F(LifeCycle, of_two_stops_the_first_one_ends_the_process) {
    const pid_t daemon = StartServiceDaemon();
    EXPECT_EQ(WEXITSTATUS(RunProgram(Servd({"stop", "stop"}))), 0);
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(daemon)), 0);
}

TEST_F(LifeCycle, stop_without_a_daemon_tries_six_times_and_ends_with_0) {
    const std::int64_t begin = MonotonicMs();
    const Ended stopper = RunAndRead(Servd({"stop"}));
    const std::int64_t took = MonotonicMs() - begin;
    EXPECT_EQ(stopper.status, 0);
    EXPECT_EQ(stopper.error, "");
    EXPECT_GE(took, 5000) << "five sleeps between six attempts";
    EXPECT_LT(took, 8000);
}

struct OtherWord : LifeCycle, ::testing::WithParamInterface<std::string> {};

TEST_P(OtherWord, starts_a_daemon_without_a_word) {
    const std::string errors = folder + "/errors";
    Launch launch = Servd({GetParam()});
    launch.errorFile = errors;
    const DetachedDaemon daemon = StartDetached(launch);
    EXPECT_EQ(WEXITSTATUS(daemon.launcherStatus), 1);
    ASSERT_NE(daemon.process, 0);
    EXPECT_TRUE(WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS));
    EXPECT_EQ(ReadFile(errors), "");
}

INSTANTIATE_TEST_SUITE_P(ThatIsNotStop, OtherWord, ::testing::Values("STOP", "stop ", "--stop", "sto", "stopped", ""));

// --- initialisation ---

TEST_F(LifeCycle, an_empty_registry_initialises) {
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_SUCCESS);
    EXPECT_THAT(ListedServices(), IsEmpty());
    EXPECT_TRUE(KeyExists(servicesKey)) << "a missing services key is made";
}

TEST_F(LifeCycle, services_are_loaded_in_the_order_of_their_keys) {
    WriteService("web", 3, "/nowhere/web.csh");
    WriteService("alpha", 3, "/nowhere/alpha.csh");
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_SUCCESS);
    EXPECT_THAT(ListedServices(), ElementsAre("web", "alpha"));
}

TEST_F(LifeCycle, without_a_registry_daemon_the_daemon_serves_and_tells_1065) {
    EXPECT_EQ(WEXITSTATUS(StopDaemon(registry)), 0);
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_TRUE(IsServdRegistered());
}

TEST_F(LifeCycle, a_group_order_that_cannot_be_read_ends_initialisation_before_the_load) {
    WriteService("web", 2, "/nowhere/web.csh");
    WriteKey(groupOrderKey, {}); // without its value "List"
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_DATABASE_DOES_NOT_EXIST);
    const RpcClient client = DialServiceDaemon();
    auto reply = CallForAnswer(
        client.get(),
        servd_SERV_ENUM_STATUS_SERVICE{.resumeIndex = 0, .typeFilter = 0x30, .stateFilter = 3, .bufferBytes = 1000});
    EXPECT_EQ(reply->status, ERROR_INVALID_PARAMETER) << "the database has no records at all";
}

TEST_F(LifeCycle, a_service_without_a_type_fails_the_load_and_keeps_what_was_loaded) {
    WriteService("first", 3, "/nowhere/first.csh");
    WriteKey(servicesKey + "\\second", {{"DisplayName", 1, Sz("second")}});
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_THAT(ListedServices(), ElementsAre("first"));
}

TEST_F(LifeCycle, a_tag_vector_that_is_missing_is_no_failure) {
    WriteService("web", 3, "/nowhere/web.csh", {{"Group", 1, Sz("base")}});
    WriteKey(groupTagsKey, {});
    (void)StartServiceDaemon();
    EXPECT_EQ(InitStatus(), ERROR_SUCCESS);
}

// --- the end ---

struct CaughtSignal : LifeCycle, ::testing::WithParamInterface<int> {};

TEST_P(CaughtSignal, ends_the_daemon_with_0_and_unregisters_it) {
    const pid_t daemon = StartServiceDaemon();
    const int status = StopDaemon(daemon, GetParam(), 1000);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_FALSE(IsServdRegistered());
}

INSTANTIATE_TEST_SUITE_P(OfTheFive, CaughtSignal, ::testing::Values(SIGILL, SIGFPE, SIGSEGV, SIGTERM, SIGINT));

struct OtherSignal : LifeCycle, ::testing::WithParamInterface<int> {};

TEST_P(OtherSignal, keeps_its_default_action) {
    const pid_t daemon = StartServiceDaemon();
    const int status = StopDaemon(daemon, GetParam());
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), GetParam());
}

INSTANTIATE_TEST_SUITE_P(NotCaught, OtherSignal, ::testing::Values(SIGHUP, SIGUSR1, SIGQUIT, SIGABRT));

TEST_F(LifeCycle, after_the_end_a_client_is_refused_at_once) {
    const pid_t daemon = StartServiceDaemon();
    const RpcClient client = DialServiceDaemon();
    ASSERT_NE(client, nullptr);
    sockaddr_in server = {};
    ASSERT_TRUE(clnt_control(client.get(), CLGET_SERVER_ADDR, &server));
    (void)StopDaemon(daemon);
    EXPECT_EQ(RpcClient(DialPort(server.sin_addr, ntohs(server.sin_port), SERVDAEMONPROG, 1)), nullptr);
}

} // namespace
