// SPDX-License-Identifier: MIT
// Status reports, status queries, the deadline, and what refuses a start or a control request. What a service process
// answers is tested where there are processes.
#include "tests/handlers/suite.h"

#include <chrono>

using ::testing::ElementsAre;

namespace {

constexpr std::int32_t noHandles[] = {-1, 0, 2, 50, 51, INT32_MAX, INT32_MIN};

svd_status_t Report(std::int32_t state, std::int32_t accepted, std::int32_t waitHint = 0) {
    return {0x10, state, accepted, 11, 12, 13, waitHint};
}

// The status that finding the service dead leaves of another one.
svd_status_t Dead(svd_status_t status) {
    status.dwCurrentState = SERVICE_STOPPED;
    status.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    status.dwCheckPoint = 0;
    status.dwWaitHint = 0;
    return status;
}

// --- report and query ---

TEST_F(Handlers, a_report_for_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(SetStatus(handle, running), ERROR_INVALID_HANDLE) << handle;
    }
    EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(SERVICE_STOPPED));
}

TEST_F(Handlers, a_service_is_loaded_stopped_and_all_else_0) {
    Load({"alerter"});
    const auto reply = QueryStatus(1);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->serviceStatus, InState(SERVICE_STOPPED));
}

TEST_F(Handlers, a_report_is_taken_as_it_stands_deliberate) {
    Load({"alerter", "browser"});
    const svd_status_t reports[] = {{1, 4, 3, 4, 5, 6, 0},       {1, 99, 3, 4, 5, 6, 0},
                                    {-1, -1, -1, -1, -1, -1, 0}, {1, 0, 3, 4, 5, 6, 600000},
                                    {1, 4, 3, 4, 5, 6, 0},       {INT32_MIN, INT32_MAX, INT32_MIN, 1, 2, 3, 0},
                                    {1, 1, 3, 4, 5, 6, 600000},  {1, 7, 0x10, 0, 0, 0, 0}};
    for (const svd_status_t &report : reports) {
        EXPECT_EQ(SetStatus(1, report), ERROR_SUCCESS);
        EXPECT_EQ(QueryStatus(1)->serviceStatus, report);
    }
    EXPECT_EQ(QueryStatus(2)->serviceStatus, InState(SERVICE_STOPPED));
}

TEST_F(Handlers, a_status_query_of_no_handle_answers_6_and_the_last_status_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_PAUSED, 3)), ERROR_SUCCESS);
    ASSERT_EQ(QueryStatus(1)->status, ERROR_SUCCESS);
    for (std::int32_t handle : noHandles) {
        const auto reply = QueryStatus(handle);
        EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE) << handle;
        EXPECT_EQ(reply->serviceStatus, Report(SERVICE_PAUSED, 3)) << handle;
    }
    EXPECT_EQ(QueryStatus(1)->status, ERROR_SUCCESS);
}

TEST_F(Handlers, a_status_query_does_not_show_what_a_control_request_left) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3)), ERROR_SUCCESS);
    ASSERT_EQ(QueryStatus(1)->status, ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, Overdue(Report(SERVICE_RUNNING, 1))), ERROR_SUCCESS);
    ASSERT_EQ(Control(1, SERVICE_CONTROL_INTERROGATE)->status, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
    EXPECT_EQ(QueryStatus(-1)->serviceStatus, Report(SERVICE_RUNNING, 3));
}

// --- the deadline ---

TEST_F(Handlers, a_status_query_after_the_deadline_finds_the_service_dead) {
    Load({"alerter"});
    for (std::int32_t state :
         {SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_RUNNING, SERVICE_CONTINUE_PENDING, SERVICE_PAUSED}) {
        const svd_status_t report = Report(state, 3, -60000);
        ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
        const auto reply = QueryStatus(1);
        EXPECT_EQ(reply->status, ERROR_SUCCESS);
        EXPECT_EQ(reply->serviceStatus, Dead(report));
        EXPECT_EQ(QueryStatus(1)->serviceStatus, Dead(report));
    }
}

void LetMillisecondsPass(int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end) {
    }
}

TEST_F(Handlers, a_hint_below_a_second_passes_in_as_many_microseconds_deliberate) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, 999)), ERROR_SUCCESS);
    LetMillisecondsPass(3); // 999 microseconds, and as many again where they reach into the next second
    EXPECT_EQ(QueryStatus(1)->serviceStatus, Dead(Report(SERVICE_RUNNING, 3)));
}

TEST_F(Handlers, a_stopped_service_with_a_passed_deadline_is_found_dead_too) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_STOPPED, 3, -60000)), ERROR_SUCCESS);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, Dead(Report(SERVICE_STOPPED, 3)));
}

TEST_F(Handlers, without_a_hint_the_deadline_never_passes) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, -60000)), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, 0)), ERROR_SUCCESS);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, Report(SERVICE_RUNNING, 3, 0));
}

TEST_F(Handlers, before_the_deadline_nothing_happens) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, 60000)), ERROR_SUCCESS);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, Report(SERVICE_RUNNING, 3, 60000));
}

TEST_F(Handlers, an_enumeration_does_not_look_at_the_deadline) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, -60000)), ERROR_SUCCESS);
    EXPECT_EQ(ShownStatus("alerter"), Report(SERVICE_RUNNING, 3, -60000));
}

// --- control ---

struct Refusal {
    std::int32_t state;
    std::int32_t accepted;
    std::int32_t control;
    std::int32_t code;
};

// Where two rules apply, the one with the lower number answers.
const Refusal refusals[] = {
    // 1: a stopped service
    {1, 3, 1, ERROR_SERVICE_NOT_ACTIVE},
    {1, 3, 4, ERROR_SERVICE_NOT_ACTIVE},
    {1, 3, 5, ERROR_SERVICE_NOT_ACTIVE},
    {1, 3, 200, ERROR_SERVICE_NOT_ACTIVE},
    // 2: no such control
    {4, 3, 0, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, 5, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, 127, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, 256, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, -1, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, INT32_MIN, ERROR_INVALID_SERVICE_CONTROL},
    {4, 3, INT32_MAX, ERROR_INVALID_SERVICE_CONTROL},
    {3, 3, 5, ERROR_INVALID_SERVICE_CONTROL},
    {2, 3, 127, ERROR_INVALID_SERVICE_CONTROL},
    // 3: a service on its way to stop
    {3, 3, 1, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {3, 3, 2, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {3, 3, 4, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {3, 0, 1, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {3, 3, 128, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    // 4: a service on its way to start is only told to stop
    {2, 3, 2, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {2, 3, 3, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {2, 3, 4, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {2, 3, 255, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    {2, 0, 2, ERROR_SERVICE_CANNOT_ACCEPT_CTRL},
    // 5: a service that does not stop
    {4, 0, 1, ERROR_INVALID_SERVICE_CONTROL},
    {4, 2, 1, ERROR_INVALID_SERVICE_CONTROL},
    {2, 2, 1, ERROR_INVALID_SERVICE_CONTROL},
    {7, 6, 1, ERROR_INVALID_SERVICE_CONTROL},
    // 6: a service that does not pause
    {4, 1, 2, ERROR_INVALID_SERVICE_CONTROL},
    {4, 1, 3, ERROR_INVALID_SERVICE_CONTROL},
    {7, 5, 3, ERROR_INVALID_SERVICE_CONTROL},
    {99, 0, 2, ERROR_INVALID_SERVICE_CONTROL},
};

TEST_F(Handlers, a_control_request_is_refused_by_the_first_rule_that_applies) {
    Load({"alerter"});
    for (const Refusal &refusal : refusals) {
        for (std::int32_t hint : {0, 60000, -60000}) { // the deadline is looked at after all these rules
            SCOPED_TRACE(::testing::Message() << "state " << refusal.state << ", accepted " << refusal.accepted
                                              << ", control " << refusal.control << ", hint " << hint);
            const svd_status_t report = Report(refusal.state, refusal.accepted, hint);
            ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
            const auto reply = Control(1, refusal.control);
            EXPECT_EQ(reply->status, refusal.code);
            EXPECT_EQ(reply->serviceStatus.dwCurrentState, refusal.state);
            EXPECT_EQ(reply->serviceStatus.dwControlsAccepted, refusal.accepted);
            EXPECT_EQ(ShownStatus("alerter").dwWaitHint, refusal.state == 99 ? 0 : hint); // not found dead
        }
    }
}

TEST_F(Handlers, a_control_request_after_the_deadline_answers_1061_and_the_dead_status) {
    Load({"alerter"});
    for (std::int32_t control : {1, 2, 3, 4, 128, 200, 255}) {
        const svd_status_t report = Report(SERVICE_RUNNING, 3, -60000);
        ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
        const auto reply = Control(1, control);
        EXPECT_EQ(reply->status, ERROR_SERVICE_CANNOT_ACCEPT_CTRL) << control;
        EXPECT_EQ(reply->serviceStatus, Dead(report)) << control;
        EXPECT_EQ(QueryStatus(1)->serviceStatus, Dead(report)) << control;
        EXPECT_EQ(Control(1, control)->status, ERROR_SERVICE_NOT_ACTIVE) << control;
    }
}

TEST_F(Handlers, stopping_a_starting_service_that_accepts_it_gets_past_the_rules) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Overdue(Report(SERVICE_START_PENDING, SERVICE_ACCEPT_STOP))), ERROR_SUCCESS);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
    EXPECT_EQ(QueryStatus(1)->serviceStatus.dwWin32ExitCode, ERROR_PROCESS_ABORTED);
}

// There is nobody to ask then; what must not be asked is the program that the numbers would give, the daemon itself.
TEST_F(Handlers, a_control_request_to_a_service_without_a_process_answers_1053_at_once) {
    Load({"alerter"});
    const svd_status_t report = Report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE, 60000);
    ASSERT_EQ(SetStatus(1, report), ERROR_SUCCESS);
    const auto begin = std::chrono::steady_clock::now();
    for (std::int32_t control : {1, 2, 3, 4, 128, 200, 255}) {
        const auto reply = Control(1, control);
        EXPECT_EQ(reply->status, ERROR_SERVICE_REQUEST_TIMEOUT) << control;
        EXPECT_EQ(reply->serviceStatus.dwCurrentState, SERVICE_RUNNING) << control;
        EXPECT_EQ(QueryStatus(1)->serviceStatus, report) << control;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)); // one time-out is 25
}

TEST_F(Handlers, interrogation_and_own_controls_are_not_checked_against_what_is_accepted) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 0)), ERROR_SUCCESS);
    for (std::int32_t control : {4, 128, 200, 255}) {
        EXPECT_EQ(Control(1, control)->status, ERROR_SERVICE_REQUEST_TIMEOUT) << control;
    }
}

TEST_F(Handlers, a_control_reply_keeps_five_fields_of_the_one_before_deliberate) {
    Load({"alerter", "browser"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, -60000)), ERROR_SUCCESS);
    ASSERT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);

    const svd_status_t other = {.dwServiceType = 0x20,
                                .dwCurrentState = SERVICE_PAUSED,
                                .dwControlsAccepted = 1,
                                .dwWin32ExitCode = 21,
                                .dwServiceSpecificExitCode = 22,
                                .dwCheckPoint = 23,
                                .dwWaitHint = 60000};
    ASSERT_EQ(SetStatus(2, other), ERROR_SUCCESS);
    svd_status_t mixed = Dead(Report(SERVICE_RUNNING, 3));
    mixed.dwCurrentState = SERVICE_PAUSED;
    mixed.dwControlsAccepted = 1;
    auto reply = Control(2, SERVICE_CONTROL_PAUSE);
    EXPECT_EQ(reply->status, ERROR_INVALID_SERVICE_CONTROL);
    EXPECT_EQ(reply->serviceStatus, mixed);
    reply = Control(2, SERVICE_CONTROL_STOP); // nobody there
    EXPECT_EQ(reply->status, ERROR_SERVICE_REQUEST_TIMEOUT);
    EXPECT_EQ(reply->serviceStatus, mixed);
    reply = Control(-1, SERVICE_CONTROL_STOP);
    EXPECT_EQ(reply->status, ERROR_INVALID_HANDLE);
    EXPECT_EQ(reply->serviceStatus, mixed);
}

TEST_F(Handlers, a_control_request_to_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(Control(handle, SERVICE_CONTROL_STOP)->status, ERROR_INVALID_HANDLE) << handle;
    }
}

TEST_F(Handlers, a_control_request_does_not_look_at_the_mark) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, -60000)), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
}

// --- start ---

TEST_F(Handlers, a_start_looks_at_the_lock_before_the_handle) {
    Load({"alerter"});
    EXPECT_EQ(Start(-1), ERROR_INVALID_HANDLE);
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    EXPECT_EQ(Start(-1), ERROR_SERVICE_DATABASE_LOCKED);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DATABASE_LOCKED);
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
}

TEST_F(Handlers, a_start_of_no_handle_answers_6) {
    Load({"alerter"});
    for (std::int32_t handle : noHandles) {
        EXPECT_EQ(Start(handle, {"one", "two"}), ERROR_INVALID_HANDLE) << handle;
    }
}

TEST_F(Handlers, a_start_of_a_marked_service_answers_1072_whatever_its_state) {
    Load({"alerter"});
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    ASSERT_EQ(Delete(1), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_MARKED_FOR_DELETE);
    ASSERT_EQ(SetStatus(1, stopped), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_MARKED_FOR_DELETE);
}

TEST_F(Handlers, a_start_of_a_service_that_is_not_stopped_answers_1056) {
    Load({"alerter"});
    for (std::int32_t state : {2, 3, 4, 5, 6, 7, 0, 99}) {
        for (std::int32_t hint : {0, 60000}) {
            ASSERT_EQ(SetStatus(1, Report(state, 0, hint)), ERROR_SUCCESS);
            EXPECT_EQ(Start(1), ERROR_SERVICE_ALREADY_RUNNING) << state;
            EXPECT_EQ(QueryStatus(1)->serviceStatus, Report(state, 0, hint)) << state;
        }
    }
}

TEST_F(Handlers, a_start_after_the_deadline_finds_the_service_dead_and_goes_on) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser"})}});
    PutService("browser", "browser");
    StartDaemon();
    ASSERT_EQ(SetStatus(1, Report(SERVICE_RUNNING, 3, -60000)), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DEPENDENCY_FAIL);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, Dead(Report(SERVICE_RUNNING, 3)));
}

TEST_F(Handlers, a_start_with_a_stopped_dependency_answers_1068_and_starts_nothing) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"carrier"})}});
    PutService("carrier", "carrier");
    StartDaemon();
    EXPECT_EQ(Start(1), ERROR_SERVICE_DEPENDENCY_FAIL);
    for (std::int32_t handle : {1, 2, 3}) {
        EXPECT_EQ(QueryStatus(handle)->serviceStatus, InState(SERVICE_STOPPED)) << handle;
    }
    ASSERT_EQ(SetStatus(2, running), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DEPENDENCY_FAIL); // carrier, two steps away
}

TEST_F(Handlers, a_start_with_a_stopped_member_in_a_group_it_depends_on_answers_1068) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"+net"})}});
    PutService("browser", "browser", {{"Group", AsText("net")}});
    PutService("carrier", "carrier", {{"Group", AsText("net")}});
    StartDaemon();
    ASSERT_EQ(SetStatus(2, running), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DEPENDENCY_FAIL);
}

TEST_F(Handlers, a_start_in_a_circle_of_dependencies_answers_6) {
    PutService("alerter", "alerter", {{"DependOnGroup", AsMulti({"browser"})}});
    PutService("browser", "browser", {{"DependOnGroup", AsMulti({"alerter"})}});
    StartDaemon();
    EXPECT_EQ(Start(1), ERROR_INVALID_HANDLE);
    ASSERT_EQ(SetStatus(2, running), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_INVALID_HANDLE);
}

TEST_F(Handlers, a_start_of_a_service_whose_key_is_gone_answers_6) {
    Load({"alerter"});
    DropKey(servicesKeyPath, "alerter");
    EXPECT_EQ(Start(1), ERROR_INVALID_HANDLE);
}

} // namespace
