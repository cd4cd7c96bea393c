// SPDX-License-Identifier: MIT
// Opening, closing, deleting, the database lock and the rest of what needs no service.
#include "tests/handlers/suite.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

constexpr std::int32_t noHandles[] = {-1, 50, 51, INT32_MAX, INT32_MIN};

// --- connect ---

TEST_F(Handlers, connect_answers_0_when_the_database_loaded) {
    Load({"alerter"});
    EXPECT_EQ(Connect("anywhere"), ERROR_SUCCESS);
    EXPECT_EQ(Connect(""), ERROR_SUCCESS);
}

TEST_F(Handlers, connect_answers_1065_when_the_database_did_not_load) {
    PutKey(KeyPath("broken"), {{"DisplayName", AsText("no type")}});
    StartDaemon();
    EXPECT_EQ(Connect("anywhere"), ERROR_DATABASE_DOES_NOT_EXIST);
}

// --- open ---

TEST_F(Handlers, open_answers_the_index_of_the_record) {
    Load({"alerter", "browser"});
    auto reply = Open("alerter");
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->handle, 1);
    reply = Open("browser");
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->handle, 2);
}

TEST_F(Handlers, open_of_an_unknown_name_answers_1060_and_handle_0) {
    Load({"alerter"});
    EXPECT_EQ(Open("alerter")->handle, 1);
    const auto reply = Open("browser");
    EXPECT_EQ(reply->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(reply->handle, 0);
}

TEST_F(Handlers, open_in_another_letter_case_finds_nothing_deliberate) {
    Load({"alerter"});
    EXPECT_EQ(Open("Alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, open_of_the_empty_name_answers_1060) {
    Load({"alerter"});
    EXPECT_EQ(Open("")->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, open_does_not_look_at_the_access_wanted) {
    Load({"alerter"});
    EXPECT_EQ(Open("alerter", 0)->status, ERROR_SUCCESS);
    EXPECT_EQ(Open("alerter", 0xFFFFFFFF)->status, ERROR_SUCCESS);
}

TEST_F(Handlers, open_of_a_service_marked_for_deletion_answers_1060_and_handle_0) {
    Load({"alerter"});
    const std::int32_t handle = Open("alerter")->handle;
    ASSERT_EQ(Delete(handle), ERROR_SUCCESS);
    const auto reply = Open("alerter");
    EXPECT_EQ(reply->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(reply->handle, 0);
    EXPECT_EQ(Close(handle), ERROR_SUCCESS); // the failed open has not been counted: this was the last handle
    EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(HasKeyAt(KeyPath("alerter")));
}

// --- close ---

TEST_F(Handlers, close_of_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE) << handle;
    }
    EXPECT_EQ(Close(0), ERROR_INVALID_HANDLE); // a free record
    EXPECT_EQ(Close(2), ERROR_INVALID_HANDLE);
}

TEST_F(Handlers, close_without_an_open_handle_answers_6_and_changes_nothing) {
    Load({"alerter"});
    EXPECT_EQ(Close(1), ERROR_INVALID_HANDLE);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE);
}

TEST_F(Handlers, close_answers_0_once_for_each_open) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Open("alerter")->handle, 1);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Open("alerter")->status, ERROR_SUCCESS);
}

TEST_F(Handlers, close_of_a_service_that_is_not_marked_keeps_it) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
}

TEST_F(Handlers, the_last_close_of_a_stopped_marked_service_removes_it) {
    Load({"alerter", "browser"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_FALSE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(GetKey("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(QueryStatus(1)->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(Delete(1), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Open("browser")->handle, 2);
}

TEST_F(Handlers, delete_without_a_handle_leaves_the_key_to_the_next_daemon) {
    Load({"alerter", "browser"});
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
    StartDaemon();
    EXPECT_FALSE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(Open("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(Open("browser")->handle, 1);
}

TEST_F(Handlers, the_last_close_of_a_running_marked_service_keeps_it) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(QueryStatus(1)->serviceStatus.dwCurrentState, SERVICE_RUNNING); // not stopped by the deletion
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(Open("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    // Nobody can close it any more, stopped or not.
    ASSERT_EQ(SetStatus(1, stopped), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_INVALID_HANDLE);
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SUCCESS);
}

TEST_F(Handlers, a_marked_service_that_stops_before_its_last_close_is_removed) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, stopped), ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter"))); // stopping alone removes nothing
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_FALSE(HasKeyAt(KeyPath("alerter")));
}

TEST_F(Handlers, an_overdue_marked_service_is_not_found_dead_by_its_close) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(SetStatus(1, Overdue(running)), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_TRUE(HasKeyAt(KeyPath("alerter")));
}

TEST_F(Handlers, a_handle_belongs_to_no_client) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    StartDaemon(); // nobody has opened anything at this one
    EXPECT_EQ(QueryStatus(1)->status, ERROR_SUCCESS);
    EXPECT_EQ(QueryConfig(1)->displayName, std::string("alerter"));
}

TEST_F(Handlers, a_key_that_is_gone_already_does_not_hinder_the_last_close) {
    Load({"alerter"});
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    DropKey(servicesKeyPath, "alerter");
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, a_free_record_is_given_to_the_next_service_created) {
    Load({"alerter", "browser"});
    ASSERT_EQ(Create({.name = "first"})->handle, 0);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(Create({.name = "second"})->handle, 1);
    EXPECT_EQ(Create({.name = "third"})->handle, 3);
    EXPECT_EQ(Open("second")->status, ERROR_SUCCESS); // the mark went with the old service
}

TEST_F(Handlers, a_new_service_inherits_what_the_last_one_left_in_the_record_deliberate) {
    PutService("alerter", "Alerter", {{"Tag", AsNumber(5)}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "first"})->handle, 0);
    const svd_status_t left = {.dwServiceType = 0x99,
                               .dwCurrentState = SERVICE_STOPPED,
                               .dwControlsAccepted = 3,
                               .dwWin32ExitCode = 1066,
                               .dwServiceSpecificExitCode = 7,
                               .dwCheckPoint = 8,
                               .dwWaitHint = 60000};
    ASSERT_EQ(SetStatus(1, left), ERROR_SUCCESS);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);

    ASSERT_EQ(Create({.name = "second", .displayName = "Second"})->handle, 1);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, left);
    EXPECT_EQ(QueryConfig(1)->tag, 5);
}

TEST_F(Handlers, a_group_keeps_the_record_of_a_removed_service_deliberate) {
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"+net"})}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_THAT(Dependencies(2), IsEmpty()); // marked
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_THAT(Dependencies(2), IsEmpty()); // free
    ASSERT_EQ(Create({.name = "stranger"})->handle, 1);
    EXPECT_THAT(Dependencies(2), ElementsAre("stranger"));
}

// --- delete ---

TEST_F(Handlers, delete_of_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(Delete(handle), ERROR_INVALID_HANDLE) << handle;
    }
    EXPECT_EQ(Delete(0), ERROR_INVALID_HANDLE);
}

TEST_F(Handlers, delete_writes_the_flag_and_nothing_else) {
    Load({"alerter", "browser"});
    Values expected = LoadableValues("alerter");
    ASSERT_EQ(ValuesOf(KeyPath("alerter")), expected);
    EXPECT_EQ(Delete(1), ERROR_SUCCESS);
    expected["DeleteFlag"] = AsNumber(1);
    EXPECT_EQ(ValuesOf(KeyPath("alerter")), expected);
    EXPECT_EQ(ValuesOf(KeyPath("browser")), LoadableValues("browser"));
}

TEST_F(Handlers, a_second_delete_answers_1072) {
    Load({"alerter"});
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Delete(1), ERROR_SERVICE_MARKED_FOR_DELETE);
}

TEST_F(Handlers, delete_of_a_service_whose_key_is_gone_answers_0) {
    Load({"alerter"});
    DropKey(servicesKeyPath, "alerter");
    EXPECT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_FALSE(HasKeyAt(KeyPath("alerter")));
    EXPECT_EQ(Open("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
}

TEST_F(Handlers, delete_reads_the_group_from_the_services_key_itself_deliberate) {
    PutService("alerter", "alerter", {{"Group", AsText("net")}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"+net"})}});
    PutKey(servicesKeyPath, {{"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(Create({.name = "zero"})->handle, 0);
    ASSERT_EQ(Open("alerter")->handle, 1);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    ASSERT_EQ(Close(1), ERROR_SUCCESS);
    ASSERT_EQ(Create({.name = "stranger"})->handle, 1);
    EXPECT_THAT(Dependencies(2), IsEmpty()); // the record left the group with its service
}

// --- lock ---

TEST_F(Handlers, lock_id_0_answers_6) {
    Load({});
    EXPECT_EQ(Lock(0, "setup"), ERROR_INVALID_HANDLE);
    EXPECT_EQ(QueryLock()->isLocked, 0);
}

TEST_F(Handlers, lock_shows_its_owner_and_its_age_until_unlocked) {
    Load({});
    EXPECT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    const auto reply = QueryLock();
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->isLocked, 1);
    EXPECT_EQ(reply->owner, std::string("setup"));
    EXPECT_GE(reply->lockDurationSec, 0);
    EXPECT_LE(reply->lockDurationSec, 5);
    EXPECT_EQ(Unlock(8), ERROR_INVALID_SERVICE_LOCK);
    EXPECT_EQ(QueryLock()->isLocked, 1);
    EXPECT_EQ(Unlock(0), ERROR_INVALID_SERVICE_LOCK);
    EXPECT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(QueryLock()->isLocked, 0);
}

TEST_F(Handlers, a_held_lock_answers_1055_to_everyone) {
    Load({});
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    EXPECT_EQ(Lock(8, "other"), ERROR_SERVICE_DATABASE_LOCKED);
    EXPECT_EQ(Lock(7, "setup"), ERROR_SERVICE_DATABASE_LOCKED);
    EXPECT_EQ(Lock(0, "setup"), ERROR_INVALID_HANDLE); // the argument is looked at first
    EXPECT_EQ(QueryLock()->owner, std::string("setup"));
    EXPECT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(Lock(8, "other"), ERROR_SUCCESS);
    EXPECT_EQ(Unlock(8), ERROR_SUCCESS);
}

TEST_F(Handlers, any_lock_id_but_0_will_do) {
    Load({});
    for (std::int32_t id : {-1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(Lock(id, ""), ERROR_SUCCESS);
        EXPECT_EQ(QueryLock()->isLocked, 1);
        EXPECT_EQ(QueryLock()->owner, std::string());
        EXPECT_EQ(Unlock(id), ERROR_SUCCESS);
    }
}

TEST_F(Handlers, unlock_of_a_free_database_answers_0_for_id_0_alone) {
    Load({});
    EXPECT_EQ(Unlock(0), ERROR_SUCCESS);
    EXPECT_EQ(Unlock(7), ERROR_INVALID_SERVICE_LOCK);
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(Unlock(0), ERROR_SUCCESS); // the owner is freed once
    EXPECT_EQ(Unlock(0), ERROR_SUCCESS);
    EXPECT_EQ(Unlock(7), ERROR_INVALID_SERVICE_LOCK);
}

TEST_F(Handlers, the_first_lock_query_of_all_shows_an_empty_owner) {
    if (!IsFreshProcess()) GTEST_SKIP() << "an earlier test of this process has called procedures";
    Load({});
    const auto reply = QueryLock();
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->isLocked, 0);
    EXPECT_EQ(reply->owner, std::string());
    EXPECT_EQ(reply->lockDurationSec, 0);
}

TEST_F(Handlers, a_lock_query_keeps_owner_and_age_of_the_last_lock_that_was_queried_deliberate) {
    Load({});
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    const std::int32_t age = QueryLock()->lockDurationSec;
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    auto reply = QueryLock();
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->isLocked, 0);
    EXPECT_EQ(reply->owner, std::string("setup"));
    EXPECT_EQ(reply->lockDurationSec, age);

    ASSERT_EQ(Lock(8, "never asked about"), ERROR_SUCCESS);
    ASSERT_EQ(Unlock(8), ERROR_SUCCESS);
    reply = QueryLock();
    EXPECT_EQ(reply->isLocked, 0);
    EXPECT_EQ(reply->owner, std::string("setup"));

    ASSERT_EQ(Lock(9, "another"), ERROR_SUCCESS);
    EXPECT_EQ(QueryLock()->owner, std::string("another"));
    ASSERT_EQ(Unlock(9), ERROR_SUCCESS);
    EXPECT_EQ(QueryLock()->owner, std::string("another"));
}

TEST_F(Handlers, a_lock_stops_starts_and_nothing_else) {
    Load({"alerter"});
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DATABASE_LOCKED);
    EXPECT_EQ(Create({.name = "first"})->status, ERROR_SUCCESS);
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("New")})->status, ERROR_SUCCESS);
    EXPECT_EQ(Open("alerter")->status, ERROR_SUCCESS);
    EXPECT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_EQ(Unlock(7), ERROR_SUCCESS);
}

// --- dummy ---

TEST_F(Handlers, dummy_answers_one_more) {
    StartDaemon();
    const auto dummy = [](std::int32_t number) { return Call(servd_SERV_DUMMY{.dummy = number})->dummy; };
    EXPECT_EQ(dummy(41), 42);
    EXPECT_EQ(dummy(-1), 0);
    EXPECT_EQ(dummy(INT32_MAX), INT32_MIN);
}

// --- a database that did not load ---

TEST_F(Handlers, without_a_database_nothing_is_there_and_a_create_begins_one) {
    PutService("alerter", "alerter");
    PutKey(groupOrderKeyPath, {}); // without its value the order cannot be read, and the services are not looked at
    StartDaemon();
    EXPECT_EQ(Connect(""), ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_EQ(Open("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(GetDisplay("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(GetKey("alerter")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(EnumStatus(0, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(EnumDepend(0, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_INVALID_HANDLE);
    for (std::int32_t handle : {0, 1}) {
        EXPECT_EQ(Start(handle), ERROR_INVALID_HANDLE);
        EXPECT_EQ(Control(handle, SERVICE_CONTROL_STOP)->status, ERROR_INVALID_HANDLE);
        EXPECT_EQ(QueryStatus(handle)->status, ERROR_INVALID_HANDLE);
        EXPECT_EQ(SetStatus(handle, running), ERROR_INVALID_HANDLE);
        EXPECT_EQ(QueryConfig(handle)->status, ERROR_INVALID_HANDLE);
        EXPECT_EQ(ChangeConfig({.handle = handle})->status, ERROR_INVALID_HANDLE);
        EXPECT_EQ(Delete(handle), ERROR_INVALID_HANDLE);
        EXPECT_EQ(Close(handle), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(Create({.name = "alerter"})->status, ERROR_SERVICE_EXISTS);
    EXPECT_EQ(Create({.name = "first", .group = "net"})->handle, 0);
    EXPECT_EQ(Create({.name = "second", .dependencies = MultiSz({"+net"})})->handle, 1);
    EXPECT_THAT(Dependencies(1), ElementsAre("first"));
    EXPECT_EQ(EnumStatus(49, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_SUCCESS);
    EXPECT_EQ(EnumStatus(50, SERVICE_WIN32, SERVICE_STATE_ALL, enoughBytes)->status, ERROR_INVALID_PARAMETER);
}

// The load ended in the middle of this record: it has its name, no display name, and a state that is none.
TEST_F(Handlers, a_record_that_was_half_loaded_is_served) {
    PutKey(KeyPath("broken"), {{"Type", AsNumber(0x10)}, {"Start", AsNumber(4)}});
    StartDaemon();
    ASSERT_EQ(Connect(""), ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_EQ(Open("broken")->handle, 1);
    EXPECT_EQ(GetDisplay("broken")->status, ERROR_SUCCESS);
    EXPECT_EQ(GetDisplay("broken")->displayName, std::string());
    EXPECT_EQ(GetKey("")->status, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(0));
    EXPECT_EQ(QueryConfig(1)->startType, 4u);
    EXPECT_EQ(QueryConfig(1)->displayName, std::string());
    EXPECT_EQ(EnumStatus(0, -1, SERVICE_STATE_ALL, enoughBytes)->servicesReturned, 0);
    EXPECT_EQ(Start(1), ERROR_SERVICE_ALREADY_RUNNING);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_INTERROGATE)->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    ASSERT_EQ(Create({.name = "other", .dependencies = MultiSz({"broken"})})->handle, 0);
    EXPECT_THAT(Dependencies(0), ElementsAre("broken"));
    EXPECT_EQ(ChangeConfig({.handle = 1, .displayName = Sz("Mended")})->status, ERROR_SUCCESS);
    EXPECT_EQ(GetKey("Mended")->name, std::string("broken"));
    ASSERT_EQ(SetStatus(1, stopped), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Close(1), ERROR_SUCCESS);
    EXPECT_FALSE(HasKeyAt(KeyPath("broken")));
}

} // namespace
