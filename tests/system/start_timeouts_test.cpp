// SPDX-License-Identifier: MIT
// Starts that take their time: processes that cannot be reached, in the daemon's service and at start-up, processes
// that are silent, and siblings that are gone. As in start_test, the test takes the daemon's place.
#include "tests/support/host.h"
#include "tests/support/memory_registry.h"
#include "tests/support/service_image.h"

#include <gmock/gmock.h>

#include <cstring>
#include <ctime>

namespace {

std::int64_t sleptNs; // by this process, all in all

} // namespace

// In libc's place.
extern "C" int nanosleep(const timespec *time, timespec *left) {
    sleptNs += std::int64_t{time->tv_sec} * 1'000'000'000 + time->tv_nsec;
    return clock_nanosleep(CLOCK_MONOTONIC, 0, time, left) == 0 ? 0 : -1;
}

namespace {

struct StartTimeouts : MemoryRegistryTest {
    StartTimeouts() { (void)gethostname(scmhostname, sizeof scmhostname); }
    ~StartTimeouts() override {
        EndAllProcesses();
        binitializing = 0;
    }

    // Loads three services of one image: Alpha in record 1, Beta in record 2, Gamma in record 3.
    static void LoadThree(const ServiceImage &image, DWORD type = SERVICE_WIN32_SHARE_PROCESS) {
        for (const char *name : {"Alpha", "Beta", "Gamma"}) {
            InstallService(name, {.type = type, .imagePath = image.path});
        }
        ASSERT_EQ(ReadServiceDatabase(), 0u);
    }

    // As left by a service that ran until its process was killed: no program, though the process id looks like one.
    static void SetGone(std::int32_t index, std::int32_t waitHintMs, std::int32_t deadlineSec) {
        svcdb[index].processId = 0x3FFFF0 + index; // above every process id
        svcdb[index].status.dwCurrentState = SERVICE_RUNNING;
        svcdb[index].status.dwWaitHint = waitHintMs;
        svcdb[index].statusDeadline = {.seconds = deadlineSec, .microseconds = 0};
    }
};

struct Timed {
    std::uint32_t rc;
    std::int64_t ms;
    std::int64_t sleptMs; // what was asked for, whatever a busy machine made of it
};

Timed TimedStart(std::int32_t index) {
    const std::int64_t begin = MonotonicMs();
    sleptNs = 0;
    const std::uint32_t rc = QuickStartService(index, nullptr, 0);
    return {rc, MonotonicMs() - begin, sleptNs / 1000000};
}

// Seconds on the clock, with room for a busy machine above.
testing::Matcher<std::int64_t> About(int seconds) {
    return testing::AllOf(testing::Ge(seconds * 1000), testing::Lt(seconds * 1000 + 4000));
}

// The pauses between the attempts, the first of them shorter by the wait for the registration that it follows.
testing::Matcher<std::int64_t> AreAllPauses(int seconds) {
    return testing::AllOf(testing::Ge((seconds - 1) * 1000), testing::Le(seconds * 1000 + 2));
}

std::int32_t NowSec() { return static_cast<std::int32_t>(time(nullptr)); }

TEST_F(StartTimeouts, a_process_that_registers_too_late_answers_1053_after_15_seconds_and_is_left_running) {
    const ServiceImage image = MakeServiceImage("late", "--delay 60000");
    LoadThree(image, SERVICE_WIN32_OWN_PROCESS);
    const Timed start = TimedStart(1);
    EXPECT_EQ(start.rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_THAT(start.ms, About(15));
    EXPECT_THAT(start.sleptMs, AreAllPauses(15));
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(svcdb[1].processId, 0);
    EXPECT_FALSE(HasEnded(std::stoi(LogLine(image, "pid"))));
}

TEST_F(StartTimeouts, at_start_up_a_process_has_30_seconds) {
    binitializing = 1;
    LoadThree(MakeServiceImage("slow-at-boot", "--delay 17500"), SERVICE_WIN32_OWN_PROCESS);
    const Timed late = TimedStart(1);
    EXPECT_EQ(late.rc, 0u);
    EXPECT_THAT(late.ms, About(17));

    SetText(ServicePath("Beta"), "ImagePath", MakeServiceImage("late-at-boot", "--delay 60000").path);
    const Timed never = TimedStart(2);
    EXPECT_EQ(never.rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_THAT(never.ms, About(30));
    EXPECT_THAT(never.sleptMs, AreAllPauses(30));
}

TEST_F(StartTimeouts, a_missing_image_answers_1053) {
    LoadThree({"/no/such/image", ""}, SERVICE_WIN32_OWN_PROCESS);
    EXPECT_EQ(TimedStart(1).rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_TRUE(WaitUntil([] { return ChildrenOf(getpid()).empty() && ZombiesOf(getpid()).empty(); }));
}

TEST_F(StartTimeouts, a_silent_process_answers_1053_after_25_seconds_and_stays_start_pending) {
    const ServiceImage image = MakeServiceImage("silent", "--silent");
    LoadThree(image, SERVICE_WIN32_OWN_PROCESS);
    const Timed start = TimedStart(1);
    EXPECT_EQ(start.rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_THAT(start.ms, About(25));
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_START_PENDING);
    EXPECT_EQ(svcdb[1].status.dwWaitHint, 0) << "only an answer sets it";
    EXPECT_EQ(std::to_string(svcdb[1].processId), LogLine(image, "pid"));
}

TEST_F(StartTimeouts, a_host_name_that_cannot_be_resolved_answers_1053) {
    LoadThree(MakeServiceImage("no-name"), SERVICE_WIN32_OWN_PROCESS);
    std::strcpy(scmhostname, "no-such-host");
    EXPECT_EQ(TimedStart(1).rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_STOPPED);
}

// --- siblings that are gone ---

TEST_F(StartTimeouts, a_sibling_with_wait_hint_0_that_is_gone_answers_1053_after_5_seconds) {
    LoadThree(MakeServiceImage("hint-0"));
    SetGone(2, 0, 0);
    const Timed start = TimedStart(1);
    EXPECT_EQ(start.rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_THAT(start.ms, About(5));
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_STOPPED);
    EXPECT_EQ(svcdb[2].status.dwCurrentState, SERVICE_RUNNING) << "unchanged";
    EXPECT_EQ(svcdb[2].processId, 0x3FFFF2);
    EXPECT_TRUE(ChildrenOf(getpid()).empty()) << "no process was started";
}

TEST_F(StartTimeouts, a_sibling_whose_deadline_is_still_ahead_answers_1053) {
    LoadThree(MakeServiceImage("ahead"));
    for (const std::int32_t index : {1, 2, 3}) {
        SetGone(index, 5000, NowSec() - 10);
    }
    svcdb[1].status.dwCurrentState = SERVICE_STOPPED;
    svcdb[3].statusDeadline.seconds = NowSec() + 1000;
    EXPECT_EQ(TimedStart(1).rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
    EXPECT_EQ(svcdb[2].status.dwCurrentState, SERVICE_RUNNING);
}

TEST_F(StartTimeouts, a_stopped_service_of_the_path_with_wait_hint_0_is_enough_for_1053_deliberate) {
    LoadThree(MakeServiceImage("stopped-hint-0"));
    SetGone(1, 5000, NowSec() - 10);
    SetGone(2, 5000, NowSec() - 10);
    svcdb[1].status.dwCurrentState = SERVICE_STOPPED;
    ASSERT_EQ(svcdb[3].status.dwWaitHint, 0);
    EXPECT_EQ(TimedStart(1).rc, std::uint32_t{ERROR_SERVICE_REQUEST_TIMEOUT});
}

TEST_F(StartTimeouts, siblings_whose_deadlines_have_all_passed_have_failed_and_the_start_goes_on) {
    const ServiceImage image = MakeServiceImage("all-passed");
    LoadThree(image);
    for (const std::int32_t index : {1, 2, 3}) {
        SetGone(index, 5000, NowSec() - 10);
    }
    svcdb[1].status.dwCurrentState = SERVICE_STOPPED;
    EXPECT_EQ(TimedStart(1).rc, 0u);
    for (const std::int32_t index : {2, 3}) {
        EXPECT_EQ(svcdb[index].status.dwCurrentState, SERVICE_STOPPED);
        EXPECT_EQ(svcdb[index].status.dwWin32ExitCode, ERROR_PROCESS_ABORTED);
        EXPECT_EQ(svcdb[index].processId, 0);
    }
    EXPECT_EQ(svcdb[1].status.dwCurrentState, SERVICE_START_PENDING);
    EXPECT_EQ(std::to_string(svcdb[1].processId), LogLine(image, "pid"));
}

} // namespace
