// SPDX-License-Identifier: MIT
// tvsc against a service daemon whose answers never come to an end: each command ends by itself, with a message and a
// status of its own.
#include "tests/support/host.h"
#include "tests/support/scripted_daemon.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>

namespace {

using testing::HasSubstr;

// One service in each answer, and always as many bytes to come as there are before.
struct LyingServd : testing::Test {
    std::string name;
    std::atomic<std::int32_t> answers = 0;

    void SetUp() override {
        ForgetScripts();
        OnCall([](servd_SERV_CONNECT_SERVICE &) { return servd_SERV_CONNECT_SERVICE_RETURN{}; });
        StartScriptedDaemon();
    }
    void TearDown() override { StopScriptedDaemon(); }

    void AnswerEnumerations(const std::function<servd_SERV_ENUM_STATUS_SERVICE_RETURN()> &answer) {
        OnCall([this, answer](servd_SERV_ENUM_STATUS_SERVICE &) {
            ++answers;
            return answer();
        });
    }
    // A service to answer with, another one each time.
    svd_enum_status_list_t *NewService() {
        name = "service-" + std::to_string(answers);
        service = {name.data(), name.data(), {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, 0, 0, 0, 0}, nullptr};
        return &service;
    }
    void ExpectEnd(const std::vector<std::string> &arguments, int status) {
        std::vector<std::string> command = {ProgramPath("tvsc")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Ended ended = RunAndRead({.command = command});
        EXPECT_EQ(ended.status, status);
        EXPECT_THAT(ended.error, HasSubstr("the daemon's list of services does not come to an end: 13 "));
        EXPECT_LT(answers, 1000);
    }
    svd_enum_status_list_t service = {};
};

TEST_F(LyingServd, an_enumeration_of_the_same_service_for_ever) {
    AnswerEnumerations([this] { return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, 100, 1, 1, NewService()}; });
    ExpectEnd({"list"}, 1);
    ExpectEnd({"stop", "--all"}, 1);
    ExpectEnd({"status", "web"}, 4);
}

TEST_F(LyingServd, an_enumeration_of_new_services_for_ever) {
    AnswerEnumerations([this] { return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, 100000, 1, answers, NewService()}; });
    ExpectEnd({"list", "--json"}, 1);
}

TEST_F(LyingServd, an_enumeration_that_brings_nothing_and_announces_ever_more) {
    AnswerEnumerations([this] { return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, answers * 100000, 0, 0, nullptr}; });
    ExpectEnd({"list"}, 1);
}

TEST_F(LyingServd, dependencies_that_never_fit) {
    AnswerEnumerations([this] { return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, 0, 1, 0, NewService()}; });
    OnCall([](servd_SERV_OPEN_SERVICE &) { return servd_SERV_OPEN_SERVICE_RETURN{0, 1}; });
    OnCall([](servd_SERV_CLOSE_SERVICE &) { return servd_SERV_CLOSE_SERVICE_RETURN{0}; });
    OnCall([](servd_SERV_CONTROL_SERVICE &) { return servd_SERV_CONTROL_SERVICE_RETURN{ERROR_INVALID_HANDLE, {}}; });
    std::atomic<int> questions = 0;
    OnCall([&](servd_SERV_ENUM_DEPEND_SERVICE &argument) {
        ++questions;
        return servd_SERV_ENUM_DEPEND_SERVICE_RETURN{ERROR_MORE_DATA, argument.bufferBytes + 1, 0, nullptr};
    });
    const Ended ended = RunAndRead({.command = {ProgramPath("tvsc"), "deps", "service-1"}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("13 ERROR_INVALID_DATA"));
    EXPECT_LT(questions, 1000);
}

// Anybody who may write in the folder of the hints could stop every look at a service.
TEST_F(LyingServd, a_pipe_in_the_place_of_a_hint_is_not_waited_for) {
    AnswerEnumerations([this] { return servd_SERV_ENUM_STATUS_SERVICE_RETURN{0, 0, 1, 0, NewService()}; });
    OnCall([](servd_SERV_CONTROL_SERVICE &) { return servd_SERV_CONTROL_SERVICE_RETURN{ERROR_INVALID_HANDLE, {}}; });
    const std::string folder = MakeScratchFolder();
    std::filesystem::create_directories(folder + "/tv/services");
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(mkfifo((folder + "/tv/services/service-" + std::to_string(i) + ".pid").c_str(), 0644), 0);
    }
    const Ended ended = RunAndRead(
        {.command = {ProgramPath("tvsc"), "list", "--brief"}, .environment = {"XDG_RUNTIME_DIR=" + folder}}, 5000);
    EXPECT_EQ(ended.status, 0) << ended.error;
}

} // namespace
