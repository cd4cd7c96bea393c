// SPDX-License-Identifier: MIT
// The test support itself: processes that detach themselves are found, waited for and ended.
#include "tests/support/host.h"

#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t portMapperProgram = 100000;

Launch Shell(const std::string &script) { return {.command = {"/bin/bash", "-c", script}}; }

TEST(RunAndRead, gives_status_output_and_error) {
    const Ended run = RunAndRead(Shell("echo out; echo err >&2; exit 3"));
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output, "out\n");
    EXPECT_EQ(run.error, "err\n");
}

TEST(RunAndRead, a_signal_gives_128_and_its_number) { EXPECT_EQ(RunAndRead(Shell("kill -KILL $$")).status, 137); }

TEST(StartProgram, environment_is_added_replaced_and_unset) {
    setenv("TV_TEST_GONE", "1", 1);
    setenv("TV_TEST_KEPT", "kept", 1);
    Launch launch = Shell("echo $TV_TEST_GONE,$TV_TEST_KEPT,$TV_TEST_NEW");
    launch.environment = {"TV_TEST_GONE", "TV_TEST_NEW=new"};
    EXPECT_EQ(RunAndRead(launch).output, ",kept,new\n");
}

TEST(StartProgram, standard_descriptors_can_be_closed) {
    Launch launch = Shell("[ -e /proc/$$/fd/0 ]");
    launch.closed = {0};
    EXPECT_NE(RunProgram(launch), 0);
}

TEST(StartProgram, a_missing_program_ends_with_127) { EXPECT_EQ(RunAndRead({.command = {"/no/such"}}).status, 127); }

TEST(WaitForEnd, throws_when_the_process_outlives_the_time) {
    const pid_t process = StartProgram(Shell("sleep 60"));
    EXPECT_THROW(WaitForEnd(process, 50), std::runtime_error);
    EXPECT_EQ(WTERMSIG(StopDaemon(process, SIGKILL)), SIGKILL);
}

TEST(StartDetached, finds_what_the_launcher_left_behind) {
    const std::string isReady = MakeScratchFolder() + "/ready";
    const DetachedDaemon daemon =
        StartDetached(Shell("(trap 'exit 7' TERM; touch " + isReady + "; while :; do sleep 0.01; done) & exit 1"));
    EXPECT_EQ(WEXITSTATUS(daemon.launcherStatus), 1);
    ASSERT_NE(daemon.process, 0);
    EXPECT_FALSE(HasEnded(daemon.process));
    ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(isReady); })) << "the shell sets its trap first";
    EXPECT_EQ(WEXITSTATUS(StopDaemon(daemon.process)), 7);
}

TEST(StartDetached, the_end_of_a_process_that_ended_meanwhile_can_still_be_taken) {
    const DetachedDaemon daemon = StartDetached(Shell("(sleep 0.1; exit 5) & kill -KILL $$"));
    EXPECT_EQ(WTERMSIG(daemon.launcherStatus), SIGKILL);
    ASSERT_NE(daemon.process, 0);
    ASSERT_TRUE(WaitUntil([&] { return HasEnded(daemon.process); }));
    EXPECT_EQ(WEXITSTATUS(WaitForEnd(daemon.process)), 5);
}

TEST(StartDetached, a_launcher_alone_gives_no_process) { EXPECT_EQ(StartDetached(Shell("exit 1")).process, 0); }

TEST(EndAllProcesses, ends_what_has_lost_its_parent_too) {
    (void)RunProgram(Shell("(sleep 60 & sleep 60) & exit 0"));
    EXPECT_TRUE(WaitUntil([] { return ChildrenOf(getpid()).size() == 1; }));
    EndAllProcesses();
    EXPECT_THAT(ChildrenOf(getpid()), IsEmpty());
}

TEST(WaitForProgram, the_port_mapper_of_the_host_answers) { EXPECT_TRUE(WaitForProgram(portMapperProgram, 2)); }

TEST(WaitForProgram, a_program_that_is_not_there_takes_the_time_given) {
    EXPECT_FALSE(WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS, 50));
}

TEST(IsRegistered, only_what_is_registered) {
    EXPECT_TRUE(IsRegistered(portMapperProgram, 2));
    EXPECT_FALSE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS));
}

TEST(MakeScratchFolder, folders_are_new_and_empty) {
    const std::string first = MakeScratchFolder();
    const std::string second = MakeScratchFolder();
    EXPECT_NE(first, second);
    EXPECT_TRUE(std::filesystem::is_empty(first));
}

TEST(RegistryBytes, terminators_are_counted) {
    EXPECT_THAT(Sz("ab"), ElementsAre('a', 'b', '\0'));
    EXPECT_THAT(MultiSz({"a", "b"}), ElementsAre('a', '\0', 'b', '\0', '\0'));
    EXPECT_THAT(MultiSz({}), SizeIs(1));
    EXPECT_THAT(Dword(0x01020304), ElementsAre(4, 3, 2, 1));
}

// --- with the daemons

TEST(StartRegistryDaemon, content_is_written_and_read_back) {
    const pid_t daemon = StartRegistryDaemon(MakeScratchFolder() + "/registry.db");
    const std::string key = servicesKey + "\\Spooler";
    EXPECT_FALSE(KeyExists(key));
    WriteService("Spooler", 3, "/opt/spooler", {{"DisplayName", REG_SZ, Sz("Print")}});
    EXPECT_TRUE(KeyExists(key));
    EXPECT_THAT(ReadSubKeys(servicesKey), ElementsAre("Spooler"));
    const RegistryValue type = {"Type", REG_DWORD, Dword(0x10)};
    const RegistryValue start = {"Start", REG_DWORD, Dword(3)};
    const RegistryValue errorControl = {"ErrorControl", REG_DWORD, Dword(1)};
    const RegistryValue imagePath = {"ImagePath", REG_SZ, Sz("/opt/spooler")};
    const RegistryValue displayName = {"DisplayName", REG_SZ, Sz("Print")};
    EXPECT_THAT(ReadValues(key), ElementsAre(type, start, errorControl, imagePath, displayName));
    EXPECT_EQ(ReadValue(key, "start"), (RegistryValue{"start", REG_DWORD, Dword(3)}));
    EXPECT_EQ(ReadValue(key, "Group"), std::nullopt);
    EXPECT_EQ(ReadValue(key + "\\Parameters", "Group"), std::nullopt);
    DeleteValue(key, "Start");
    EXPECT_EQ(ReadValue(key, "Start"), std::nullopt);
    DeleteKey(key);
    EXPECT_FALSE(KeyExists(key));
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_FALSE(IsRegistered(REGDAEMONPROG, REGDAEMONVERS));
}

TEST(StartRegistryDaemon, content_outlives_the_daemon) {
    const std::string file = MakeScratchFolder() + "/registry.db";
    const pid_t first = StartRegistryDaemon(file);
    WriteKey("Software\\Test", {{"", REG_BINARY, std::string("\0\1\xff", 3)}});
    EXPECT_EQ(WTERMSIG(StopDaemon(first, SIGKILL)), SIGKILL);
    const pid_t second = StartRegistryDaemon(file);
    EXPECT_EQ(ReadValue("Software\\Test", ""), (RegistryValue{"", REG_BINARY, std::string("\0\1\xff", 3)}));
    EXPECT_EQ(StopDaemon(second), 0);
}

TEST(StartServiceDaemon, the_detached_process_is_found_and_stopped) {
    const pid_t registry = StartRegistryDaemon(MakeScratchFolder() + "/registry.db");
    const pid_t daemon = StartServiceDaemon();
    const RpcClient client = DialServiceDaemon();
    const auto answer = CallForAnswer(client.get(), servd_SERV_DUMMY{41});
    EXPECT_EQ(answer.record.dummy, 42);
    EXPECT_EQ(StopDaemon(daemon), 0);
    EXPECT_FALSE(IsRegistered(SERVDAEMONPROG, SERVDAEMONVERS));
    EXPECT_EQ(StopDaemon(registry), 0);
}

} // namespace
