// SPDX-License-Identifier: MIT
// status_watch: when a client may ask the daemon for a status, worked out on a clock of the test's own.
#include "svcapi/status_watch.h"

#include "servd/limits.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;

constexpr SERVICE_STATUS asStarted = {0x10, SERVICE_START_PENDING, 0, 0, 0, 0, startWaitHintMs};
constexpr SERVICE_STATUS running = {0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0};
constexpr SERVICE_STATUS stopping = {0x10, SERVICE_STOP_PENDING, 0, 0, 0, 1, 5000};
constexpr SERVICE_STATUS stopped = {0x10, SERVICE_STOPPED, 0, 1067, 0, 0, 0};

struct StatusWatching : testing::Test {
    StatusWatch watch;
    CallClock::time_point now = CallClock::time_point(std::chrono::hours(1));

    // Looks after some time. Returns whether the daemon is to be asked.
    bool Look(int afterMs, const SERVICE_STATUS &status) {
        now += milliseconds(afterMs);
        NoteLook(&watch, status, true, now);
        return IsAskingUseful(watch, now);
    }
    // Likewise at a service of which state and controls alone can be seen.
    bool Peek(int afterMs, DWORD state, DWORD controls = 0) {
        now += milliseconds(afterMs);
        NoteLook(&watch, {0, state, controls, 0, 0, 0, 0}, false, now);
        return IsAskingUseful(watch, now);
    }
};

TEST_F(StatusWatching, a_status_without_a_wait_tells_all_by_itself) {
    EXPECT_FALSE(Look(0, running));
    EXPECT_FALSE(Look(60000, stopped));
}

TEST_F(StatusWatching, a_wait_that_may_have_passed_is_asked_about_at_the_first_look) { EXPECT_TRUE(Look(0, stopping)); }

TEST_F(StatusWatching, a_wait_that_has_begun_since_an_earlier_look_is_asked_about_once_it_has_passed) {
    EXPECT_FALSE(Look(0, running));
    EXPECT_FALSE(Look(100, stopping));
    EXPECT_FALSE(Look(4800, stopping));
    EXPECT_TRUE(Look(100, stopping)); // 5 s after it was last seen running
}

TEST_F(StatusWatching, each_report_begins_the_wait_anew) {
    SERVICE_STATUS progress = stopping;
    EXPECT_TRUE(Look(0, progress));
    for (int i = 0; i < 10; ++i) {
        ++progress.dwCheckPoint;
        EXPECT_FALSE(Look(4000, progress));
    }
}

TEST_F(StatusWatching, a_started_service_is_left_alone_until_it_has_been_silent_for_long) {
    EXPECT_FALSE(Look(0, asStarted));
    EXPECT_FALSE(Look(31000, asStarted));
    EXPECT_TRUE(Look(1, asStarted));
}

TEST_F(StatusWatching, a_started_service_that_has_reported_meanwhile_is_left_alone_anew) {
    EXPECT_FALSE(Look(0, asStarted));
    EXPECT_FALSE(Look(20000, running));
    EXPECT_FALSE(Look(1000, asStarted));
    EXPECT_FALSE(Look(30000, asStarted));
}

TEST_F(StatusWatching, the_wait_in_a_control_s_answer_is_counted_from_the_answer) {
    NoteControlAnswer(&watch, stopping, now);
    EXPECT_FALSE(Look(0, stopping));
    EXPECT_FALSE(Look(6000, stopping));
    EXPECT_TRUE(Look(1, stopping));
}

TEST_F(StatusWatching, words_that_cannot_be_seen_are_asked_for) {
    EXPECT_TRUE(Peek(0, SERVICE_RUNNING, SERVICE_ACCEPT_STOP));
    EXPECT_TRUE(Peek(0, SERVICE_START_PENDING, SERVICE_ACCEPT_STOP)); // a start accepts nothing
}

TEST_F(StatusWatching, words_that_were_asked_for_stand_for_a_second) {
    EXPECT_TRUE(Peek(0, SERVICE_STOPPED));
    EXPECT_FALSE(Look(0, stopped)); // the answer
    EXPECT_FALSE(Peek(1000, SERVICE_STOPPED));
    EXPECT_EQ(watch.status.dwWin32ExitCode, 1067u);
    EXPECT_TRUE(Peek(1, SERVICE_STOPPED));
    EXPECT_EQ(watch.status.dwWin32ExitCode, 0u);
}

TEST_F(StatusWatching, what_may_be_a_start_is_left_alone_where_only_the_state_is_seen) {
    NoteStart(&watch, now);
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(Peek(3000, SERVICE_START_PENDING)) << i;
    }
    EXPECT_TRUE(Peek(5000, SERVICE_START_PENDING));
}

TEST_F(StatusWatching, the_wait_of_a_control_holds_where_only_the_state_is_seen) {
    NoteControlAnswer(&watch, stopping, now);
    EXPECT_FALSE(Peek(0, SERVICE_STOP_PENDING));
    EXPECT_FALSE(Peek(6000, SERVICE_STOP_PENDING));
    EXPECT_TRUE(Peek(1, SERVICE_STOP_PENDING));
    EXPECT_TRUE(Peek(0, SERVICE_STOPPED));
}

} // namespace
