// SPDX-License-Identifier: MIT
// The cases of the handlers against the handlers themselves; and what only shows in the same process: the records and
// the lists, and arguments that no client can send.
#include "tests/handlers/suite.h"
#include "tests/support/memory_registry.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

namespace {

// --- the deadline ---

ServiceDatabaseEntry Reported(std::int32_t waitHintMs, StatusDeadline deadline) {
    ServiceDatabaseEntry entry{};
    entry.status.dwWaitHint = waitHintMs;
    entry.statusDeadline = deadline;
    return entry;
}

bool Passed(std::int32_t waitHintMs, StatusDeadline deadline, WallTime now) {
    return HasDeadlinePassed(Reported(waitHintMs, deadline), now);
}

void ExpectDeadline(WallTime now, std::int32_t waitHintMs, std::int32_t seconds, std::int32_t microseconds) {
    const StatusDeadline deadline = DeadlineAfter(now, waitHintMs);
    EXPECT_EQ(deadline.seconds, seconds) << waitHintMs;
    EXPECT_EQ(deadline.microseconds, microseconds) << waitHintMs;
}

TEST(DeadlineAfter, whole_seconds_are_added_to_the_seconds) {
    ExpectDeadline({100, 200000}, 3000, 103, 200000);
    ExpectDeadline({100, 200000}, 0, 100, 200000);
}

TEST(DeadlineAfter, the_rest_is_added_to_the_microseconds_as_it_is_deliberate) {
    ExpectDeadline({10, 999000}, 2500, 12, 999500);
    ExpectDeadline({10, 0}, 1, 10, 1);
    ExpectDeadline({10, 0}, 999, 10, 999);
}

TEST(DeadlineAfter, microseconds_are_not_carried_deliberate) {
    ExpectDeadline({10, 999999}, 1999, 11, 1000998);
    EXPECT_FALSE(Passed(1999, {11, 1000998}, {11, 999999}));
    EXPECT_TRUE(Passed(1999, {11, 1000998}, {12, 0}));
}

TEST(DeadlineAfter, a_negative_hint_lies_in_the_past) {
    ExpectDeadline({100, 500}, -2500, 98, 0);
    ExpectDeadline({100, 0}, -1, 100, -1);
    EXPECT_TRUE(Passed(-1, {100, -1}, {100, 0}));
}

TEST(DeadlineAfter, the_longest_hints_do_not_overflow) {
    ExpectDeadline({1, 0}, INT32_MAX, 2147484, 647);
    ExpectDeadline({1, 0}, INT32_MIN, -2147482, -648);
    ExpectDeadline({INT32_MAX, 0}, 1000, INT32_MIN, 0);
}

TEST(HasDeadlinePassed, it_passes_one_microsecond_after_it) {
    EXPECT_FALSE(Passed(3000, {103, 200000}, {103, 199999}));
    EXPECT_FALSE(Passed(3000, {103, 200000}, {103, 200000}));
    EXPECT_TRUE(Passed(3000, {103, 200000}, {103, 200001}));
}

TEST(HasDeadlinePassed, seconds_go_before_microseconds) {
    EXPECT_FALSE(Passed(3000, {103, 0}, {102, 999999}));
    EXPECT_TRUE(Passed(3000, {103, 999999}, {104, 0}));
}

TEST(HasDeadlinePassed, it_holds_beyond_the_32nd_bit_of_the_seconds) {
    const WallTime after2038 = {std::int64_t{INT32_MAX} + 1000, 0};
    const StatusDeadline deadline = DeadlineAfter(after2038, 5000);
    EXPECT_FALSE(Passed(5000, deadline, after2038));
    EXPECT_FALSE(Passed(5000, deadline, {after2038.seconds + 5, 0}));
    EXPECT_TRUE(Passed(5000, deadline, {after2038.seconds + 5, 1}));
}

TEST(HasDeadlinePassed, the_seconds_outlast_the_sign_of_their_word) {
    const WallTime lastSecondOfTheSign = {INT32_MAX, 0};
    const WallTime afterIt = {0x80000001, 0};
    EXPECT_FALSE(Passed(2000, DeadlineAfter(lastSecondOfTheSign, 2000), lastSecondOfTheSign));
    EXPECT_FALSE(Passed(2000, DeadlineAfter(lastSecondOfTheSign, 2000), afterIt));
    EXPECT_TRUE(Passed(1000, DeadlineAfter(lastSecondOfTheSign, 1000), afterIt));
    EXPECT_TRUE(Passed(1000, {0, 0}, afterIt));
}

TEST(HasDeadlinePassed, without_a_hint_it_never_passes) {
    EXPECT_FALSE(Passed(0, {0, 0}, {100, 0}));
    EXPECT_TRUE(Passed(1, {0, 0}, {100, 0}));
    EXPECT_TRUE(Passed(-1, {0, 0}, {100, 0}));
}

// --- what no client can send ---

TEST_F(Handlers, a_lock_without_an_owner_answers_6) {
    servd_SERV_LOCK_SERVICE argument = {.lockId = 7, .owner = nullptr};
    EXPECT_EQ(serv_lock_service_1(&argument, nullptr)->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(svcdblock.lockId, 0);
}

TEST_F(Handlers, a_query_of_a_lock_without_an_owner_answers_6) {
    StartDaemon();
    svcdblock.lockId = 7;
    const auto reply = QueryLock();
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(reply->isLocked, 1);
}

TEST_F(Handlers, the_age_of_a_lock_is_counted_from_the_second_it_was_taken) {
    StartDaemon();
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    svcdblock.lockedSinceSec -= 100;
    const std::int64_t before = WallTimeNow().seconds;
    const std::int32_t age = QueryLock()->lockDurationSec;
    EXPECT_GE(age, before - svcdblock.lockedSinceSec);
    EXPECT_LE(age, WallTimeNow().seconds - svcdblock.lockedSinceSec);
    EXPECT_GE(age, 100);
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(svcdblock.lockedSinceSec, 0);
    EXPECT_EQ(svcdblock.owner, nullptr);
    EXPECT_GE(QueryLock()->lockDurationSec, 100);
}

TEST_F(Handlers, a_null_name_is_nobody_s) {
    Load({"alerter"});
    servd_SERV_GET_DISPLAY_SERVICE display = {.name = nullptr};
    EXPECT_EQ(serv_get_display_service_1(&display, nullptr)->status, ERROR_SERVICE_DOES_NOT_EXIST);
    servd_SERV_GET_KEY_SERVICE key = {.displayName = nullptr};
    EXPECT_EQ(serv_get_key_service_1(&key, nullptr)->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, stop_ends_the_process_with_status_0) {
    servd_STOP_DAEMON_SERVICE argument = {.unused = 0};
    EXPECT_EXIT((void)serv_stop_daemon_service_1(&argument, nullptr), ExitedWithCode(0), "");
}

// --- records ---

TEST_F(Handlers, a_report_keeps_process_and_context_and_sets_the_deadline) {
    Load({"alerter"});
    svcdb[1].processId = 4711;
    svcdb[1].serviceContext = 5;
    std::int64_t before = WallTimeNow().seconds;
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_STOPPED, 0, 0, 0, 0, 3000}), ERROR_SUCCESS);
    EXPECT_EQ(svcdb[1].processId, 4711); // deliberate: also when it reports itself stopped
    EXPECT_EQ(svcdb[1].serviceContext, 5);
    EXPECT_GE(svcdb[1].statusDeadline.seconds, before + 3);
    EXPECT_LE(svcdb[1].statusDeadline.seconds, WallTimeNow().seconds + 3);
    before = WallTimeNow().seconds;
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS); // set without a hint, too
    EXPECT_GE(svcdb[1].statusDeadline.seconds, before);
    EXPECT_LE(svcdb[1].statusDeadline.seconds, WallTimeNow().seconds);
}

TEST_F(Handlers, a_service_found_dead_loses_its_process_and_keeps_the_rest) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Overdue(running)), ERROR_SUCCESS);
    svcdb[1].processId = 4711;
    svcdb[1].serviceContext = 5;
    const StatusDeadline deadline = svcdb[1].statusDeadline;
    ASSERT_EQ(QueryStatus(1)->serviceStatus.dwWin32ExitCode, ERROR_PROCESS_ABORTED);
    EXPECT_EQ(svcdb[1].processId, 0);
    EXPECT_EQ(svcdb[1].serviceContext, 5);
    EXPECT_EQ(svcdb[1].statusDeadline.seconds, deadline.seconds);
    EXPECT_EQ(svcdb[1].statusDeadline.microseconds, deadline.microseconds);
}

pid_t EndedProcess() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    (void)waitpid(child, nullptr, 0);
    return child;
}

// The host is not named here, so that no process can be reached.
TEST_F(Handlers, a_control_request_to_a_process_that_is_gone_answers_1062_and_finds_the_service_dead) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, 3, 4, 5, 6, 60000}), ERROR_SUCCESS);
    svcdb[1].processId = EndedProcess();
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_NOT_ACTIVE);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, (svd_status_t{0x10, SERVICE_STOPPED, 3, ERROR_PROCESS_ABORTED, 5, 0, 0}));
    EXPECT_EQ(svcdb[1].processId, 0);
}

TEST_F(Handlers, a_control_request_to_a_living_process_that_cannot_be_reached_answers_1053) {
    Load({"alerter"});
    const svd_status_t report = {0x10, SERVICE_RUNNING, 3, 4, 5, 6, 60000};
    ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
    svcdb[1].processId = getpid();
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, report);
    EXPECT_EQ(svcdb[1].processId, getpid());
}

TEST_F(Handlers, a_removed_service_loses_names_and_mark_and_keeps_the_rest_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(SetStatus(1, {0x99, SERVICE_STOPPED, 3, 4, 5, 6, 60000}), ERROR_SUCCESS);
    svcdb[1].processId = 4711;
    svcdb[1].tag = 9;
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    const ServiceDatabaseEntry &entry = svcdb[1];
    EXPECT_EQ(entry.name, nullptr);
    EXPECT_EQ(entry.displayName, nullptr);
    EXPECT_EQ(entry.deletePending, 0);
    EXPECT_EQ(entry.openCount, 0);
    EXPECT_EQ(entry.status, (svd_status_t{0x99, SERVICE_STOPPED, 3, 4, 5, 6, 60000}));
    EXPECT_EQ(entry.processId, 4711);
    EXPECT_EQ(entry.tag, 9);
    EXPECT_EQ(entry.type, 0x10);
}

TEST_F(Handlers, open_counts_and_lock_ages_wrap) {
    Load({"alerter"});
    svcdb[1].openCount = INT32_MAX;
    EXPECT_EQ(Open("alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(svcdb[1].openCount, INT32_MIN);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(svcdb[1].openCount, INT32_MAX);
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    svcdblock.lockedSinceSec = INT32_MIN;
    EXPECT_LT(QueryLock()->lockDurationSec, 0);
}

TEST_F(Handlers, a_walk_leaves_no_marks_behind) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"alerter"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"carrier"})}});
    PutService("carrier", "carrier");
    StartDaemon();
    const auto expectNoMarks = [] {
        for (std::int32_t index = 0; index < svcdbsize; ++index) {
            EXPECT_EQ(svcdb[index].visited, 0) << index;
            EXPECT_EQ(svcdb[index].visiting, 0) << index;
        }
    };
    for (std::int32_t handle : {1, 2}) {
        (void)EnumDepend(handle, SERVICE_STATE_ALL, enoughBytes);
        expectNoMarks();
        (void)Start(handle); // 6 and 1068
        expectNoMarks();
        (void)ChangeConfig({.handle = handle, .group = Sz("net")});
        expectNoMarks();
    }
    (void)Create({.name = "driver", .dependencies = MultiSz({"browser"})});
    expectNoMarks();
}

// --- the two lists ---

Names GroupMembers(const std::string &name) { return MembersOf(grouplist, grouplistsize, name); }
Names PathMembers(const std::string &name) { return MembersOf(imagepathlist, imagepathlistsize, name); }
const Names noEntry = {"(no entry)"};

TEST_F(Handlers, create_files_the_image_path_under_the_group_deliberate) {
    StartDaemon();
    ASSERT_EQ(Create({.name = "a", .imagePath = "/bin/x", .group = "net"})->status, ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "b", .imagePath = "/bin/x"})->status, ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "c", .group = "net"})->status, ERROR_SUCCESS);
    EXPECT_THAT(PathMembers("net"), ElementsAre("a"));
    EXPECT_THAT(PathMembers(""), ElementsAre("b"));
    EXPECT_EQ(PathMembers("/bin/x"), noEntry);
    EXPECT_THAT(GroupMembers("net"), ElementsAre("c", "a"));
    EXPECT_EQ(GroupMembers(""), noEntry);
}

TEST_F(Handlers, a_create_that_is_undone_leaves_an_empty_group) {
    StartDaemon();
    ASSERT_EQ(Create({.name = "a", .imagePath = "/bin/x", .group = "net", .dependencies = MultiSz({"a"})})->status,
              ERROR_CIRCULAR_DEPENDENCY);
    EXPECT_THAT(GroupMembers("net"), IsEmpty());
    EXPECT_EQ(PathMembers("net"), noEntry);
    EXPECT_EQ(ServiceNames(), "");
    EXPECT_EQ(svcdb[0].openCount, 0);
    EXPECT_EQ(svcdb[0].displayName, nullptr);
}

TEST_F(Handlers, a_change_of_the_image_path_files_the_service_under_the_new_one_too_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/old")}});
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 1, .imagePath = Sz("/bin/new")})->status, ERROR_SUCCESS);
    EXPECT_THAT(PathMembers("/bin/new"), ElementsAre("a"));
    EXPECT_THAT(PathMembers("/bin/old"), ElementsAre("a")); // the removal edits the other list
}

TEST_F(Handlers, a_change_of_the_image_path_takes_the_service_out_of_the_group_of_that_number_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/old")}, {"Group", AsText("net")}}); // both in entry 0
    StartDaemon();
    ASSERT_EQ(ChangeConfig({.handle = 1, .imagePath = Sz("/bin/new")})->status, ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), IsEmpty());
}

TEST_F(Handlers, delete_takes_the_service_out_of_no_list_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/x")}, {"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), ElementsAre("a"));
    EXPECT_THAT(PathMembers("/bin/x"), ElementsAre("a"));
}

TEST_F(Handlers, delete_takes_the_service_out_of_what_the_services_key_names_deliberate) {
    PutService("a", "a", {{"ImagePath", AsText("/bin/x")}, {"Group", AsText("net")}});
    PutService("b", "b", {{"Group", AsText("other")}});
    PutKey(servicesKeyPath, {{"Group", AsText("other")}, {"ImagePath", AsText("/bin/x")}});
    StartDaemon();
    ASSERT_EQ(Delete(2), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("other"), IsEmpty());
    EXPECT_THAT(GroupMembers("net"), ElementsAre("a"));
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers("net"), IsEmpty()); // by way of entry 0 of the image paths
    EXPECT_THAT(PathMembers("/bin/x"), ElementsAre("a"));
}

TEST_F(Handlers, names_of_1024_bytes_are_read_whole_and_longer_ones_are_not) {
    const std::string longest(1024, 'g'); // without a terminator
    PutService("a", "a", {{"Group", AsText(longest.substr(0, 1023))}});
    PutKey(servicesKeyPath, {{"Group", {REG_SZ, longest}}});
    StartDaemon();
    const std::int32_t b = Create({.name = "b", .group = longest})->handle;
    const std::int32_t c = Create({.name = "c", .group = longest + "g"})->handle;
    ASSERT_EQ(Delete(b), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers(longest), IsEmpty());
    PutKey(servicesKeyPath, {{"Group", AsText(longest + "g")}});
    ASSERT_EQ(Delete(c), ERROR_SUCCESS);
    EXPECT_THAT(GroupMembers(longest + "g"), ElementsAre("c"));
}

} // namespace
