// SPDX-License-Identifier: MIT
// Starts and controls of real service processes, asked of a real daemon over TCP.
#include "servd/limits.h"
#include "tests/handlers/suite.h"
#include "tests/support/host.h"
#include "tests/support/real_daemon.h"
#include "tests/support/service_image.h"

#include <signal.h>

using ::testing::ElementsAre;

namespace {

class ServiceRequests : public Handlers {
protected:
    // Whatever still runs of the services is adopted and ended.
    void TearDown() override {
        for (const pid_t process : ChildrenOf(DaemonProcess(), "test_service")) {
            (void)kill(process, SIGKILL);
        }
    }

    // Puts a service whose process is the test service with these options into the registry.
    static ServiceImage PutImage(const std::string &name, const std::string &options = "", Values more = {}) {
        const ServiceImage image = MakeServiceImage(name, options);
        more["ImagePath"] = AsText(image.path);
        PutService(name, name, more);
        return image;
    }
};

constexpr svd_status_t justStarted = {0x10, SERVICE_START_PENDING, 0, 0, 0, 0, startWaitHintMs};

TEST_F(ServiceRequests, a_start_brings_the_service_up) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    EXPECT_EQ(Start(1), ERROR_SUCCESS);
    EXPECT_EQ(ShownStatus("alerter"), justStarted);
    EXPECT_THAT(LogLines(image, "start"), ElementsAre("alerter 1 0"));
}

TEST_F(ServiceRequests, a_start_hands_the_arguments_on) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    EXPECT_EQ(Start(1, {"one", "", "three"}), ERROR_SUCCESS);
    EXPECT_THAT(LogLines(image, "start"), ElementsAre("alerter 1 3 one  three"));
}

TEST_F(ServiceRequests, a_start_passes_the_refusal_of_the_process_on) {
    (void)PutImage("alerter", "--answer 1234");
    StartDaemon();
    EXPECT_EQ(Start(1), 1234);
    EXPECT_EQ(ShownStatus("alerter"), justStarted);
}

TEST_F(ServiceRequests, a_status_query_before_the_first_report_finds_the_service_dead_deliberate) {
    (void)PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, (svd_status_t{0x10, SERVICE_STOPPED, 0, ERROR_PROCESS_ABORTED, 0, 0, 0}));
}

TEST_F(ServiceRequests, after_its_first_report_a_service_is_not_started_again) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_ALREADY_RUNNING);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, running);
    EXPECT_THAT(LogLines(image, "start"), ElementsAre("alerter 1 0"));
}

TEST_F(ServiceRequests, a_start_that_finds_the_service_dead_starts_it_again) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, Overdue(running)), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SUCCESS);
    EXPECT_THAT(LogLines(image, "start", 2), ElementsAre("alerter 1 0", "alerter 1 0"));
    EXPECT_EQ(ShownStatus("alerter"), justStarted);
}

TEST_F(ServiceRequests, a_service_starts_once_its_dependency_runs) {
    const ServiceImage alerter = PutImage("alerter", "", {{"DependOnGroup", AsMulti({"browser"})}});
    const ServiceImage browser = PutImage("browser");
    StartDaemon();
    EXPECT_EQ(Start(1), ERROR_SERVICE_DEPENDENCY_FAIL);
    EXPECT_FALSE(HasLog(alerter));
    EXPECT_FALSE(HasLog(browser));
    EXPECT_EQ(Start(2), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SUCCESS); // pending is enough
    EXPECT_THAT(LogLines(alerter, "start"), ElementsAre("alerter 1 0"));
}

TEST_F(ServiceRequests, a_lock_holds_starts_up_even_its_holder_s) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Lock(7, "setup"), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SERVICE_DATABASE_LOCKED);
    EXPECT_FALSE(HasLog(image));
    ASSERT_EQ(Unlock(7), ERROR_SUCCESS);
    EXPECT_EQ(Start(1), ERROR_SUCCESS);
}

TEST_F(ServiceRequests, a_service_of_an_unknown_user_is_not_started) {
    const ServiceImage image = PutImage("alerter", "", {{"DependOnService", AsText("no-such-user-here")}});
    StartDaemon();
    EXPECT_EQ(Start(1), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(SERVICE_STOPPED));
    EXPECT_FALSE(HasLog(image));
}

TEST_F(ServiceRequests, a_created_service_starts_and_stops_and_goes) {
    Load({});
    const ServiceImage image = MakeServiceImage("spooler", "--context 99");
    ASSERT_EQ(Create({.name = "spooler", .imagePath = image.path})->handle, 0);
    ASSERT_EQ(Start(0, {"x"}), ERROR_SUCCESS);
    EXPECT_THAT(LogLines(image, "start"), ElementsAre("spooler 0 1 x"));
    ASSERT_EQ(SetStatus(0, running), ERROR_SUCCESS);
    EXPECT_EQ(Control(0, SERVICE_CONTROL_STOP)->status, ERROR_SUCCESS);
    EXPECT_THAT(LogLines(image, "control"), ElementsAre("99 1"));
    ASSERT_EQ(SetStatus(0, stopped), ERROR_SUCCESS);
    ASSERT_EQ(Delete(0), ERROR_SUCCESS);
    EXPECT_EQ(Start(0), ERROR_SERVICE_MARKED_FOR_DELETE);
    ASSERT_EQ(Close(0), ERROR_SUCCESS);
    EXPECT_FALSE(HasKeyAt(KeyPath("spooler")));
}

TEST_F(ServiceRequests, a_control_reaches_the_process_with_its_context) {
    const ServiceImage image = PutImage("alerter", "--context 4711");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    const auto reply = Control(1, 200);
    EXPECT_EQ(reply->status, ERROR_SUCCESS);
    EXPECT_EQ(reply->serviceStatus, InState(0)); // as the process answers
    EXPECT_EQ(QueryStatus(1)->serviceStatus, InState(0));
    EXPECT_THAT(LogLines(image, "control"), ElementsAre("4711 200"));
}

TEST_F(ServiceRequests, a_refused_control_does_not_reach_the_process) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, {0x10, SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0, 0, 0, 0}), ERROR_SUCCESS);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_PAUSE)->status, ERROR_INVALID_SERVICE_CONTROL);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_SHUTDOWN)->status, ERROR_INVALID_SERVICE_CONTROL);
    EXPECT_EQ(Control(1, SERVICE_CONTROL_STOP)->status, ERROR_SUCCESS);
    EXPECT_THAT(LogLines(image, "control"), ElementsAre("0 1"));
}

TEST_F(ServiceRequests, a_control_finds_a_killed_service_dead) {
    const ServiceImage image = PutImage("alerter");
    StartDaemon();
    ASSERT_EQ(Start(1), ERROR_SUCCESS);
    ASSERT_EQ(SetStatus(1, running), ERROR_SUCCESS);
    const pid_t process = std::stoi(LogLine(image, "pid"));
    ASSERT_EQ(kill(process, SIGKILL), 0);
    ASSERT_TRUE(WaitUntil([process] { return kill(process, 0) != 0; })); // until the daemon has reaped it
    EXPECT_EQ(QueryStatus(1)->serviceStatus, running);                   // without a hint nobody notices
    const auto reply = Control(1, SERVICE_CONTROL_STOP);
    EXPECT_EQ(reply->status, ERROR_SERVICE_NOT_ACTIVE);
    svd_status_t dead = running;
    dead.dwCurrentState = SERVICE_STOPPED;
    dead.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    EXPECT_EQ(QueryStatus(1)->serviceStatus, dead);
    EXPECT_EQ(Start(1), ERROR_SUCCESS);
}

} // namespace
