// SPDX-License-Identifier: MIT
// The daemon at other times of day: the time that a service has for its next report, and the age of a lock, in the
// years in which the seconds since the epoch outgrow a signed word, and a 32-bit libc that cannot tell them.
#include "registry/regd_xdr.h"
#include "servd/servd_xdr.h"
#include "tests/support/host.h"
#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"
#include "util/wall_time.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

constexpr std::int64_t lastSecondOfTheSign = INT32_MAX; // 19 January 2038, 03:14:07 UTC

// The command, at that time of day.
std::vector<std::string> At(std::int64_t seconds, std::vector<std::string> command) {
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    command.insert(command.begin(), {here / "moved_clock", std::to_string(seconds)});
    return command;
}

// Runs a test program that lies beside this one at that time of day. Returns its status.
int RunTestAt(std::int64_t seconds, const char *program, const char *filter) {
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return RunProgram({.command = At(seconds, {here / program, std::string("--gtest_filter=") + filter}),
                       .environment = {"TV_THEN=1"}});
}

// Runs itself at another time.
TEST(WallTimeNow, tells_the_time_after_2038) {
    constexpr std::int64_t then = lastSecondOfTheSign + 1000;
    if (std::getenv("TV_THEN") == nullptr) {
        EXPECT_EQ(RunTestAt(then, "clock_system_test", "WallTimeNow.*"), 0);
        return;
    }
    const WallTime now = WallTimeNow();
    EXPECT_GE(now.seconds, then);
    EXPECT_LT(now.seconds, then + patienceMs / 1000);
    EXPECT_GE(now.microseconds, 0);
    EXPECT_LT(now.microseconds, 1000000);
}

// Symptom: in the 32-bit build a fork after 2038 waited for no call of another thread, and each such child began
// without connections. Cause: the wait's end was reckoned from a time of day that libc did not tell.
TEST(ForkAfter2038, waits_for_a_short_registry_call_of_another_thread) {
    EXPECT_EQ(
        RunTestAt(lastSecondOfTheSign + 1000, "registry_connection_test", "*.a_fork_waits_for_a_short_operation*"), 0);
}

struct Clock : testing::Test {
    Clock() {
        (void)StartRegistryDaemon(MakeScratchFolder() + "/registry.db");
        WriteService("Alpha", SERVICE_DEMAND_START, "/bin/true");
    }
    ~Clock() override { EndAllProcesses(); }

    static void StartDaemonAt(std::int64_t seconds) {
        const DetachedDaemon daemon = StartDetached({.command = At(seconds, {ProgramPath("servd")})}, "servd");
        ASSERT_NE(daemon.process, 0);
        ASSERT_TRUE(WaitForProgram(SERVDAEMONPROG, SERVDAEMONVERS));
    }
};

// A service that reports itself running has until the end of its hint, and no longer; a lock is as old as it is.
void ExpectTimesToHold() {
    const RpcClient daemon = DialServiceDaemon();
    constexpr std::int32_t alpha = 1; // the first service that is loaded
    constexpr std::int32_t hintMs = 3000;
    servd_SERV_SET_STATUS_SERVICE report = {.handle = alpha, .serviceStatus = {}};
    report.serviceStatus.dwCurrentState = SERVICE_RUNNING;
    report.serviceStatus.dwWaitHint = hintMs;
    std::string owner = "setup";
    const std::int64_t begin = MonotonicMs();
    EXPECT_EQ(CallForAnswer(daemon.get(), servd_SERV_LOCK_SERVICE{7, owner.data()})->status, ERROR_SUCCESS);
    EXPECT_EQ(CallForAnswer(daemon.get(), report)->status, ERROR_SUCCESS);
    const auto state = [&] {
        return CallForAnswer(daemon.get(), servd_SERV_QUERY_STATUS_SERVICE{alpha})->serviceStatus.dwCurrentState;
    };
    while (MonotonicMs() - begin < hintMs - 500) {
        ASSERT_EQ(state(), SERVICE_RUNNING);
        SleepMs(100);
    }
    SleepMs(begin + hintMs + 500 - MonotonicMs());
    EXPECT_EQ(state(), SERVICE_STOPPED) << "the hint has passed";
    const std::int32_t age = CallForAnswer(daemon.get(), servd_SERV_QUERY_LOCK_SERVICE{0})->lockDurationSec;
    EXPECT_GE(age, 3);
    EXPECT_LE(age, (MonotonicMs() - begin) / 1000 + 1);
}

// As a Win32 file time has it: tenths of microseconds since 1601.
std::uint64_t FileTimeAt(std::int64_t seconds) {
    return static_cast<std::uint64_t>(seconds + 11'644'473'600) * 10'000'000;
}

TEST(RegistryAfter2038, keys_bear_the_time_of_their_last_write) {
    constexpr std::int64_t then = lastSecondOfTheSign + 1000;
    (void)StartProgram(
        {.command = At(then, {ProgramPath("tvregd"), "--lazy", "--database", MakeScratchFolder() + "/registry.db"})});
    ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
    WriteKey("SOFTWARE\\New", {});
    regd_REG_QUERY_INFO_KEY question = {};
    question.key = HKEY_LOCAL_MACHINE;
    auto answer = CallForAnswer(DialRegistryDaemon().get(), question);
    const regd_FILETIME written = answer->body.lastWriteTime;
    EXPECT_GE(std::uint64_t{written.high} << 32 | written.low, FileTimeAt(then));
    EndAllProcesses();
}

TEST_F(Clock, deadlines_and_lock_durations_hold_in_2038) {
    StartDaemonAt(lastSecondOfTheSign + 1000);
    ExpectTimesToHold();
}

TEST_F(Clock, deadlines_and_lock_durations_hold_while_the_sign_of_the_seconds_turns) {
    StartDaemonAt(lastSecondOfTheSign - 1);
    ExpectTimesToHold();
}

} // namespace
