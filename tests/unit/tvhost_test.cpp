// SPDX-License-Identifier: MIT
// What tvhost makes of command lines, environments and ends of programs.
#include "tests/support/value_bytes.h"
#include "tv/winerror.h"
#include "tvhost/log_file.h"
#include "tvhost/notify.h"
#include "tvhost/program.h"
#include "tvhost/restart.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Statuses as of waitpid.
constexpr int Exited(int status) { return status << 8; }
constexpr int Killed(int signal) { return signal; }

} // namespace

TEST(SplitIntoWords, words_are_split_at_blanks) {
    EXPECT_THAT(*SplitIntoWords("  -p 8080\t-f "), ElementsAre("-p", "8080", "-f"));
    EXPECT_THAT(*SplitIntoWords(""), IsEmpty());
}

TEST(SplitIntoWords, quotes_keep_blanks_and_make_empty_words) {
    EXPECT_THAT(*SplitIntoWords(R"("a b"c "")"), ElementsAre("a bc", ""));
}

TEST(SplitIntoWords, a_backslash_keeps_quote_and_backslash_only) {
    EXPECT_THAT(*SplitIntoWords(R"(\"a\\ C:\dir)"), ElementsAre(R"("a\)", R"(C:\dir)"));
}

TEST(SplitIntoWords, an_open_quote_is_refused) {
    EXPECT_EQ(SplitIntoWords("a \"b"), std::nullopt);
    EXPECT_EQ(SplitIntoWords("it's"), std::nullopt);
}

TEST(SplitIntoWords, single_quotes_keep_everything) {
    const std::vector<std::string> environment = {"A=1"};
    EXPECT_THAT(*SplitIntoWords(R"('a "b" \ %A% ${A}'c it\'s "it's")", VariablesOf(environment)),
                ElementsAre(R"(a "b" \ %A% ${A}c)", "it's", "it's"));
}

TEST(SplitIntoWords, variables_are_neither_split_nor_read_again) {
    const std::vector<std::string> environment = {"A=x  y", "B=%A%", "AB=no", "EMPTY="};
    EXPECT_THAT(*SplitIntoWords(R"(-%A%- "${B}" %EMPTY%)", VariablesOf(environment)), ElementsAre("-x  y-", "%A%", ""));
}

TEST(SplitIntoWords, what_is_no_variable_stays_as_written) {
    const std::vector<std::string> environment = {"A=1"};
    EXPECT_THAT(*SplitIntoWords("+%Y%m%d 100% $A ${NO} ${A %% ${} %A-B%", VariablesOf(environment)),
                ElementsAre("+%Y%m%d", "100%", "$A", "${NO}", "${A", "%%", "${}", "%A-B%"));
    EXPECT_THAT(*SplitIntoWords("%A%"), ElementsAre("%A%"));
}

TEST(WhyNotAShell, names_what_a_shell_would_act_on_outside_of_quotes) {
    EXPECT_THAT(WhyNotAShell("a; b"), HasSubstr("the ; goes"));
    EXPECT_THAT(WhyNotAShell("ls *.txt"), HasSubstr("the * goes"));
    EXPECT_THAT(WhyNotAShell("echo $HOME"), HasSubstr("the $ goes"));
    EXPECT_THAT(WhyNotAShell("a > b"), HasSubstr("the > goes"));
    EXPECT_EQ(WhyNotAShell(R"(-c 'a; b' "*" ${HOME} %PATH% -x=1)"), "");
}

TEST(FirstWord, the_rest_is_left_as_it_was_written) {
    std::string rest;
    EXPECT_EQ(FirstWord(R"( "/opt/my prog" -x  "a b")", &rest), "/opt/my prog");
    EXPECT_EQ(rest, R"(-x  "a b")");
}

TEST(MergedEnvironment, changes_replace_add_and_take_away) {
    EXPECT_THAT(MergedEnvironment({"A=1", "B=2", "AB=3"}, {"A=9", "B=", "C=4"}), ElementsAre("AB=3", "A=9", "C=4"));
}

TEST(MergedEnvironment, what_names_no_variable_is_passed_over) {
    EXPECT_THAT(MergedEnvironment({"A=1"}, {"B", "=2", ""}), ElementsAre("A=1"));
}

TEST(CodesOfEnd, status_0_is_a_good_end) {
    EXPECT_EQ(CodesOfEnd(Exited(0), false).win32, ERROR_SUCCESS);
    EXPECT_EQ(CodesOfEnd(Exited(0), true).win32, ERROR_SUCCESS);
}

TEST(CodesOfEnd, another_status_is_service_specific_also_after_a_stop) {
    for (const bool stopAsked : {false, true}) {
        EXPECT_EQ(CodesOfEnd(Exited(3), stopAsked).win32, ERROR_SERVICE_SPECIFIC_ERROR);
        EXPECT_EQ(CodesOfEnd(Exited(3), stopAsked).specific, 3u);
    }
}

TEST(CodesOfEnd, the_signals_of_a_stop_are_a_good_end_only_when_it_was_asked_for) {
    EXPECT_EQ(CodesOfEnd(Killed(SIGTERM), true).win32, ERROR_SUCCESS);
    EXPECT_EQ(CodesOfEnd(Killed(SIGKILL), true).win32, ERROR_SUCCESS);
    EXPECT_EQ(CodesOfEnd(Killed(SIGTERM), false).win32, ERROR_SERVICE_SPECIFIC_ERROR);
    EXPECT_EQ(CodesOfEnd(Killed(SIGTERM), false).specific, 128u + SIGTERM);
    EXPECT_EQ(CodesOfEnd(Killed(SIGSEGV), true).specific, 128u + SIGSEGV);
}

// Starts a program that cannot be started; tells what is said about it.
StartFailure Refused(const HostParameters &parameters) {
    StartFailure failure;
    EXPECT_EQ(StartProgram(parameters, {}, {}, &failure), 0);
    return failure;
}

TEST(StartProgram, what_could_not_be_used_is_named) {
    HostParameters parameters;
    parameters.application = "/no/such/program";
    EXPECT_EQ(Refused(parameters).text, "/no/such/program: No such file or directory");
    EXPECT_EQ(Refused(parameters).codes.win32, DWORD{ERROR_FILE_NOT_FOUND});
    parameters.application = "/bin/true";
    parameters.directory = "/no/such/folder";
    EXPECT_EQ(Refused(parameters).text, "/no/such/folder: No such file or directory");
    EXPECT_EQ(Refused(parameters).codes.win32, DWORD{ERROR_PATH_NOT_FOUND});
    parameters.directory = "/";
    parameters.standardError = "/no/such/folder/file";
    EXPECT_EQ(Refused(parameters).text, "/no/such/folder/file: No such file or directory");
    EXPECT_EQ(Refused(parameters).codes.win32, DWORD{ERROR_PATH_NOT_FOUND});
    parameters.standardOutput = "/";
    EXPECT_EQ(Refused(parameters).text, "/: Is a directory");
    parameters.commandLine = "an \"open quote";
    EXPECT_EQ(Refused(parameters).text, "AppParameters: a quote is not closed");
    EXPECT_EQ(Refused(parameters).codes.win32, DWORD{ERROR_INVALID_DATA});
}

TEST(CodesOfErrno, each_cause_has_its_win32_code) {
    EXPECT_EQ(CodesOfErrno(ENOENT).win32, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(CodesOfErrno(ENOTDIR).win32, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(CodesOfErrno(EACCES).win32, ERROR_ACCESS_DENIED);
    EXPECT_EQ(CodesOfErrno(ENOEXEC).win32, ERROR_BAD_EXE_FORMAT);
    EXPECT_EQ(CodesOfErrno(EAGAIN).win32, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(CodesOfErrno(ELOOP).win32, ERROR_SERVICE_SPECIFIC_ERROR);
    EXPECT_EQ(CodesOfErrno(ELOOP).specific, DWORD{ELOOP});
}

TEST(SignalOf, names_and_numbers) {
    EXPECT_EQ(SignalOf("TERM"), SIGTERM);
    EXPECT_EQ(SignalOf("SIGQUIT"), SIGQUIT);
    EXPECT_EQ(SignalOf("10"), SIGUSR1);
    EXPECT_EQ(SignalOf("term"), 0);
    EXPECT_EQ(SignalOf("0"), 0);
    EXPECT_EQ(SignalOf(""), 0);
}

TEST(TextOfEnd, status_and_signal) {
    EXPECT_EQ(TextOfEnd(Exited(3)), "ended with status 3");
    EXPECT_EQ(TextOfEnd(Killed(SIGSEGV)), "ended by signal 11 (Segmentation fault)");
}

// --- restart ---

struct Deciding : testing::Test {
    HostParameters parameters = {.application = "/p",
                                 .commandLine = "",
                                 .restart = RestartWhen::onFailure,
                                 .restartDelayMs = 100,
                                 .longestRestartDelayMs = 350,
                                 .goodRunMs = 1000,
                                 .restartBurst = 4};
    FailureActions actions;
    RestartHistory history;
    RestartDecision After(bool failed, std::uint64_t ranMs) {
        return DecideAfterEnd(parameters, actions, failed, ranMs, &history);
    }
};

TEST_F(Deciding, the_delay_doubles_up_to_its_limit_and_the_burst_ends_it) {
    for (const DWORD delayMs : {100u, 200u, 350u, 350u}) {
        const RestartDecision decision = After(true, 5);
        EXPECT_EQ(decision.next, AfterEnd::restart);
        EXPECT_EQ(decision.delayMs, delayMs);
    }
    const RestartDecision last = After(true, 5);
    EXPECT_EQ(last.next, AfterEnd::giveUp);
    EXPECT_EQ(last.reason, "started 4 times again without a run of 1000 ms");
    EXPECT_EQ(history.restarts, 4u);
}

TEST_F(Deciding, a_good_run_begins_anew) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(After(true, 1000).delayMs, 100u);
    }
    EXPECT_EQ(history.restarts, 10u);
}

TEST_F(Deciding, a_good_end_is_a_reason_for_always_only) {
    EXPECT_EQ(After(false, 5).next, AfterEnd::stop);
    parameters.restart = RestartWhen::always;
    EXPECT_EQ(After(false, 5).next, AfterEnd::restart);
    parameters.restart = RestartWhen::never;
    EXPECT_EQ(After(true, 5).next, AfterEnd::stop);
}

TEST_F(Deciding, no_burst_is_no_limit_and_a_long_row_no_overflow) {
    parameters.restartBurst = 0;
    parameters.longestRestartDelayMs = longestTimeoutMs;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(After(true, 5).next, AfterEnd::restart);
    }
    EXPECT_EQ(After(true, 5).delayMs, longestTimeoutMs);
}

TEST_F(Deciding, failure_actions_count_failures_and_the_last_one_stands_for_the_rest) {
    parameters.restart = RestartWhen::asTheKeySays;
    EXPECT_EQ(After(true, 5).next, AfterEnd::stop);
    actions.actions = {{FailureActionKind::restart, 7}, {FailureActionKind::runCommand, 0}};
    actions.resetSec = 2;
    EXPECT_EQ(After(false, 5).next, AfterEnd::stop);
    EXPECT_EQ(After(true, 5).delayMs, 7u);
    EXPECT_EQ(After(true, 5).next, AfterEnd::runCommand);
    EXPECT_EQ(After(true, 5).next, AfterEnd::runCommand);
    EXPECT_EQ(After(true, 2000).next, AfterEnd::restart) << "the reset period has passed";
    actions.actions = {{FailureActionKind::reboot, 0}};
    EXPECT_EQ(After(true, 5).next, AfterEnd::stop);
}

TEST(ParseFailureActions, header_and_pairs) {
    FailureActions actions;
    const std::string header = Dword(86400) + Dword(0) + Dword(0) + Dword(2) + Dword(20);
    ASSERT_TRUE(ParseFailureActions(header + Dword(1) + Dword(60000) + Dword(3) + Dword(0), &actions));
    EXPECT_EQ(actions.resetSec, 86400u);
    ASSERT_EQ(actions.actions.size(), 2u);
    EXPECT_EQ(actions.actions[0].kind, FailureActionKind::restart);
    EXPECT_EQ(actions.actions[0].delayMs, 60000u);
    EXPECT_EQ(actions.actions[1].kind, FailureActionKind::runCommand);
    EXPECT_FALSE(ParseFailureActions(header + Dword(1) + Dword(60000) + Dword(3), &actions)) << "cut";
    EXPECT_FALSE(ParseFailureActions(header + Dword(1) + Dword(0) + Dword(4) + Dword(0), &actions)) << "no such kind";
    EXPECT_FALSE(ParseFailureActions(Dword(0) + Dword(0) + Dword(0) + Dword(0xFFFFFFFF) + Dword(20), &actions));
    EXPECT_FALSE(ParseFailureActions("", &actions));
}

// --- notifications ---

TEST(ParseNotification, what_is_known_is_taken_and_the_rest_passed_over) {
    const Notification told =
        ParseNotification("READY=1\nSTATUS=a=b\nMAINPID=42\nEXTEND_TIMEOUT_USEC=5000000\nWATCHDOG=1\nnothing\n=\n");
    EXPECT_TRUE(told.ready);
    EXPECT_EQ(told.status, "a=b");
    EXPECT_EQ(told.mainProcess, 42);
    EXPECT_EQ(told.extendUs, 5'000'000u);
    EXPECT_FALSE(ParseNotification("READY=0").ready);
    EXPECT_FALSE(ParseNotification("").hasStatus);
    EXPECT_TRUE(ParseNotification("STATUS=").hasStatus);
}

// --- log files ---

struct LogFiles : testing::Test {
    LogFile log;
    void SetUp() override {
        char folder[] = "/tmp/tvhost-test.XXXXXX";
        log.folder = mkdtemp(folder);
        log.service = "s";
        log.mostBytes = 10;
        log.olderFiles = 2;
    }
    void TearDown() override {
        CloseLogFile(&log);
        std::filesystem::remove_all(log.folder);
    }
    std::string Text(const std::string &name) const {
        std::ifstream file(log.folder + "/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(LogFiles, lines_are_never_parted_between_files) {
    const std::string lines = "123\n456\n789\n0123456789abc\nx\n";
    EXPECT_EQ(AppendLines(&log, lines), lines.size());
    EXPECT_EQ(Text("s.log.2"), "789\n");
    EXPECT_EQ(Text("s.log.1"), "0123456789abc\n") << "a line that is longer than a file has one of its own";
    EXPECT_EQ(Text("s.log"), "x\n");
    EXPECT_FALSE(std::filesystem::exists(log.folder + "/s.log.3"));
}

TEST_F(LogFiles, a_file_is_gone_on_with_and_its_broken_line_ended) {
    std::ofstream(log.folder + "/s.log") << "ab";
    EXPECT_EQ(AppendLines(&log, "c\n"), 2u);
    EXPECT_EQ(Text("s.log"), "ab\nc\n");
}

TEST_F(LogFiles, a_link_is_not_written_through) {
    std::filesystem::create_symlink(log.folder + "/other", log.folder + "/s.log");
    EXPECT_EQ(AppendLines(&log, "c\n"), 0u);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(std::filesystem::exists(log.folder + "/other"));
}
