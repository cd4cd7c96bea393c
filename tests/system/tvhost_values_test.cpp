// SPDX-License-Identifier: MIT
// What tvhost says of parameters that it cannot use: of the wrong type, unreadable, enormous.
#include "tests/support/registry_faults.h"
#include "tests/support/tvhost_world.h"
#include "tv/winreg.h"
#include "tvhost/failure_actions.h"
#include "tvhost/parameters.h"

#include <gmock/gmock.h>

#include <csignal>

using testing::HasSubstr;

namespace {

struct TvhostValues : TvhostWorld {
    void Create() { Do({"create", name, "--", "/bin/true"}); }
    // Starts the service, which must fail. Returns what is said of it.
    std::string Said(std::int64_t code) {
        const std::string said = StartByScript();
        (void)Tvsc({"start", name});
        EXPECT_EQ(Status().at("exit").at("win32"), code);
        return ReadFile(said);
    }
    // The same with a value.
    std::string SaidOf(const RegistryValue &value, std::int64_t code = ERROR_INVALID_DATA) {
        Create();
        WriteKey(ParametersKey(), {value});
        return Said(code);
    }
};

// --- types ---

TEST_F(TvhostValues, a_wrong_type_is_named_with_its_value) {
    EXPECT_EQ(SaidOf({"AppStopTimeout", REG_SZ, Sz("soon")}),
              "tvhost: " + name + ": AppStopTimeout: is a REG_SZ, not a REG_DWORD\n");
    EXPECT_THAT(LogText(), HasSubstr("AppStopTimeout: is a REG_SZ, not a REG_DWORD\n"));
}

TEST_F(TvhostValues, each_parameter_has_a_type) {
    Create();
    const std::vector<RegistryValue> before = ReadValues(ParametersKey());
    VisitHostParameters([&](const char *value, auto, auto...) {
        DeleteKey(ParametersKey());
        WriteKey(ParametersKey(), before);
        WriteKey(ParametersKey(), {{value, REG_BINARY, "four"}});
        HostParameters parameters;
        std::string problem;
        EXPECT_EQ(ReadHostParameters(name, &parameters, &problem), DWORD{ERROR_INVALID_DATA}) << value;
        EXPECT_THAT(problem, HasSubstr(value + std::string(": is a REG_BINARY, not a REG_")));
    });
}

TEST_F(TvhostValues, a_number_of_another_size_is_named) {
    EXPECT_THAT(SaidOf({"AppStopTimeout", REG_DWORD, "12"}), HasSubstr("AppStopTimeout: 2 bytes are no REG_DWORD"));
}

TEST_F(TvhostValues, an_unknown_word_is_named_with_those_that_are_known) {
    EXPECT_THAT(SaidOf({"AppRestart", REG_SZ, Sz("sometimes")}),
                HasSubstr("AppRestart: sometimes is none of never, on-failure, always"));
}

TEST_F(TvhostValues, a_failure_command_of_the_wrong_type_is_named) {
    Create();
    WriteKey(servicesKey + "\\" + name, {{"FailureCommand", REG_DWORD, Dword(1)}});
    EXPECT_THAT(Said(ERROR_INVALID_DATA), HasSubstr("FailureCommand: is a REG_DWORD, not a REG_SZ\n"));
}

TEST_F(TvhostValues, a_start_that_is_refused_leaves_the_state_of_one_that_still_runs) {
    Do({"create", name, "--", "/bin/sleep", "1000"});
    Do({"start", name});
    const HostState state = StateFile();
    Do({"reset", name}); // as a new daemon, this one does not know of it any more
    WriteKey(ParametersKey(), {{"AppStopTimeout", REG_SZ, Sz("soon")}});
    (void)Tvsc({"start", name});
    EXPECT_EQ(StateFile().program, state.program);
    EXPECT_EQ(StateFile().phase, "running");
    kill(state.host, SIGTERM);
}

// --- sizes ---

TEST_F(TvhostValues, an_enormous_text_is_named) {
    EXPECT_THAT(SaidOf({"AppParameters", REG_SZ, Sz(std::string(5'000'000, 'a'))}),
                HasSubstr("AppParameters: 5000001 bytes are more than 4194304\n"));
}

TEST_F(TvhostValues, an_enormous_list_is_named) {
    EXPECT_THAT(SaidOf({"AppEnvironment", REG_MULTI_SZ, "A=" + std::string(5'000'000, 'a') + std::string(2, '\0')}),
                HasSubstr("AppEnvironment: 5000004 bytes are more than 4194304\n"));
}

TEST_F(TvhostValues, enormous_failure_actions_are_named) {
    Create();
    WriteKey(servicesKey + "\\" + name, {{"FailureActions", REG_BINARY, std::string(5'000'000, 'a')}});
    EXPECT_THAT(Said(ERROR_INVALID_DATA), HasSubstr("FailureActions: 5000000 bytes are more than 4194304\n"));
}

TEST_F(TvhostValues, more_arguments_than_the_kernel_takes_are_a_reason) {
    EXPECT_THAT(SaidOf({"AppParameters", REG_SZ, Sz(std::string(300'000, 'a'))}, ERROR_SERVICE_SPECIFIC_ERROR),
                HasSubstr("Argument list too long (AppParameters, AppArguments, AppEnvironment)\n"));
}

TEST_F(TvhostValues, an_enormous_number_counts_as_the_most_there_can_be) {
    Create();
    WriteKey(ParametersKey(), {{"AppStopTimeout", REG_DWORD, Dword(0xFFFFFFFF)},
                               {"AppRestartDelay", REG_DWORD, Dword(0xFFFFFFFE)},
                               {"AppRotateFiles", REG_DWORD, Dword(0xFFFFFFFF)}});
    HostParameters parameters;
    std::string problem;
    ASSERT_EQ(ReadHostParameters(name, &parameters, &problem), DWORD{0}) << problem;
    EXPECT_EQ(parameters.stopTimeoutMs, 2'000'000'000u);
    EXPECT_EQ(parameters.restartDelayMs, 2'000'000'000u);
    EXPECT_EQ(parameters.rotateFiles, 1000u);
}

// --- a registry that does not tell ---

struct UnreadableValue : TvhostValues {
    void SetUp() override {
        TvhostValues::SetUp();
        WatchRegistry(); // tvhost finds what stands before the registry daemon
        ForgetRegistryCalls();
    }
    void TearDown() override {
        ForgetRegistryCalls();
        TvhostValues::TearDown();
    }
};

TEST_F(UnreadableValue, a_parameter_that_cannot_be_read_is_named_with_the_code) {
    Create();
    FailRegistryCallsLike("size " + ParametersKey() + " AppStopTimeout", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Said(ERROR_ACCESS_DENIED),
              "tvhost: " + name + ": AppStopTimeout: cannot be read: 5 ERROR_ACCESS_DENIED\n");
    EXPECT_THAT(LogText(), HasSubstr("AppStopTimeout: cannot be read: 5 ERROR_ACCESS_DENIED\n"));
    EXPECT_THAT(Tvsc({"status", name}).output, HasSubstr("log: tvhost: AppStopTimeout: cannot be read"));
    EXPECT_THAT(StateFile().reason, HasSubstr("AppStopTimeout: cannot be read"));
    ForgetRegistryCalls();
    (void)Tvsc({"start", name});
    EXPECT_TRUE(WaitUntil([this] { return Status().at("exit").at("win32") == 0; }));
}

TEST_F(UnreadableValue, failure_actions_that_cannot_be_read_are_named_with_the_code) {
    Create();
    FailRegistryCallsLike("size " + servicesKey + "\\" + name + " FailureActions", ERROR_ACCESS_DENIED);
    EXPECT_THAT(Said(ERROR_ACCESS_DENIED), HasSubstr("FailureActions: cannot be read: 5 ERROR_ACCESS_DENIED\n"));
}

TEST_F(UnreadableValue, a_registry_that_breaks_off_is_told) {
    Create();
    FailRegistryCallsLike("size " + ParametersKey() + " Application", ERROR_REGISTRY_IO_FAILED);
    EXPECT_THAT(Said(ERROR_REGISTRY_IO_FAILED),
                HasSubstr("Application: cannot be read: 1016 ERROR_REGISTRY_IO_FAILED"));
}

} // namespace
