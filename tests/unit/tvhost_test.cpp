// SPDX-License-Identifier: MIT
// What tvhost makes of command lines, environments and ends of programs.
#include "tv/winerror.h"
#include "tvhost/program.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Statuses as of waitpid.
constexpr int Exited(int status) { return status << 8; }
constexpr int Killed(int signal) { return signal; }

} // namespace

TEST(SplitCommandLine, words_are_split_at_blanks) {
    EXPECT_THAT(*SplitCommandLine("  -p 8080\t-f "), ElementsAre("-p", "8080", "-f"));
    EXPECT_THAT(*SplitCommandLine(""), IsEmpty());
}

TEST(SplitCommandLine, quotes_keep_blanks_and_make_empty_words) {
    EXPECT_THAT(*SplitCommandLine(R"("a b"c "")"), ElementsAre("a bc", ""));
}

TEST(SplitCommandLine, a_backslash_keeps_quote_and_backslash_only) {
    EXPECT_THAT(*SplitCommandLine(R"(\"a\\ C:\dir)"), ElementsAre(R"("a\)", R"(C:\dir)"));
}

TEST(SplitCommandLine, an_open_quote_is_refused) {
    EXPECT_EQ(SplitCommandLine("a \"b"), std::nullopt);
    EXPECT_EQ(SplitCommandLine("it's"), std::nullopt);
}

TEST(SplitCommandLine, single_quotes_keep_everything) {
    const std::vector<std::string> environment = {"A=1"};
    EXPECT_THAT(*SplitCommandLine(R"('a "b" \ %A% ${A}'c it\'s "it's")", VariablesOf(environment)),
                ElementsAre(R"(a "b" \ %A% ${A}c)", "it's", "it's"));
}

TEST(SplitCommandLine, variables_are_neither_split_nor_read_again) {
    const std::vector<std::string> environment = {"A=x  y", "B=%A%", "AB=no", "EMPTY="};
    EXPECT_THAT(*SplitCommandLine(R"(-%A%- "${B}" %EMPTY%)", VariablesOf(environment)),
                ElementsAre("-x  y-", "%A%", ""));
}

TEST(SplitCommandLine, what_is_no_variable_stays_as_written) {
    const std::vector<std::string> environment = {"A=1"};
    EXPECT_THAT(*SplitCommandLine("+%Y%m%d 100% $A ${NO} ${A %% ${} %A-B%", VariablesOf(environment)),
                ElementsAre("+%Y%m%d", "100%", "$A", "${NO}", "${A", "%%", "${}", "%A-B%"));
    EXPECT_THAT(*SplitCommandLine("%A%"), ElementsAre("%A%"));
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
    EXPECT_EQ(StartProgram(parameters, {}, &failure), 0);
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
