// SPDX-License-Identifier: MIT
// Daemon options, the daemon's address, and which versions are spoken to.
#include "tests/support/registry_fixture.h"

#include "registry/tvpthread.h"

#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

using RegistryParameters = FreshRegistryTest;

// Taken before any test has run.
struct FreshProcess {
    int connections = numConnections;
    int next = nextClientNum;
    int destroyed = connectionTableDestroyed;
    int userData = userDataSet;
    int messages = destructorMsg + wrongVersionMsg + connectFailMsg;
    int unused = pingXtIntervalId + pingThreadHandle + regdRegPingDaemonAllowed;
    int firstSpawn = bFirstSpawn;
    int cached = bCached;
    int row = tvOSID;
    int pidKnown = pid_init;
    int keepBackup = regdKeepBackup;
    int options = regdFlushInterval | regdLogLines | regdPingCheckInterval | regdVerbose | regdSystemDaemon | regdSems |
                  regdSemaphoreProc | regdSemaphoreAccess;
    int systemAllowed = bAllowSystemDaemonConnect;
    int localAllowed = bAllowLocalDaemonConnect;
    std::uint32_t programNumber = tvreg_prognum;
    timeval timeout = TIMEOUT;
    int mutexToMake = btvRegistryMutexNeedToInit;
};
const FreshProcess freshProcess;

std::uint32_t OwnOffset() { return (getuid() != 0 ? getuid() : 1) & 0xFFFF; }

unsigned ProgramNumber() {
    unsigned number = 0;
    tvGenRegistryONCAddr(nullptr, &number, nullptr, nullptr);
    return number;
}

// The program number that a process of another user computes; 0 when it cannot become that user.
unsigned ProgramNumberOfUser(uid_t uid) {
    int answer[2];
    if (pipe(answer) != 0) return 0;
    const pid_t child = fork();
    if (child == 0) {
        unsigned number = 0;
        if (setresuid(uid, uid, uid) == 0) number = ProgramNumber();
        _exit(write(answer[1], &number, sizeof number) == sizeof number ? 0 : 1);
    }
    unsigned number = 0;
    (void)!read(answer[0], &number, sizeof number);
    (void)waitpid(child, nullptr, 0);
    close(answer[0]);
    close(answer[1]);
    return number;
}

} // namespace

// --- a fresh process -----------------------------------------------------------------------------------------------

TEST(FreshRegistryProcess, waits_25_seconds_for_an_answer) {
    EXPECT_EQ(freshProcess.timeout.tv_sec, 25);
    EXPECT_EQ(freshProcess.timeout.tv_usec, 0);
}

TEST(FreshRegistryProcess, has_no_connection_allows_all_and_keeps_backups) {
    EXPECT_EQ(freshProcess.connections, 0);
    EXPECT_EQ(freshProcess.next, 1);
    EXPECT_EQ(freshProcess.destroyed, 0);
    EXPECT_EQ(freshProcess.userData, 0);
    EXPECT_EQ(freshProcess.messages, 0);
    EXPECT_EQ(freshProcess.unused, 0);
    EXPECT_EQ(freshProcess.firstSpawn, 1);
    EXPECT_EQ(freshProcess.cached, 0);
    EXPECT_EQ(freshProcess.row, 0);
    EXPECT_EQ(freshProcess.pidKnown, 0);
    EXPECT_EQ(freshProcess.mutexToMake, 1);
    EXPECT_EQ(freshProcess.keepBackup, 1);
    EXPECT_EQ(freshProcess.options, 0);
    EXPECT_EQ(freshProcess.systemAllowed, 1);
    EXPECT_EQ(freshProcess.localAllowed, 1);
    EXPECT_EQ(freshProcess.programNumber, 0u);
}

// The numbers of the options -i, -l, -m, -n, -p and -s.
static void ExpectOneToSix() {
    EXPECT_EQ(regdFlushInterval, 1);
    EXPECT_EQ(regdLogLines, 2);
    EXPECT_EQ(regdSemaphoreAccess, 3);
    EXPECT_EQ(regdSemaphoreProc, 4);
    EXPECT_EQ(regdPingCheckInterval, 5);
    EXPECT_EQ(regdSems, 6);
}

// --- options -------------------------------------------------------------------------------------------------------

TEST_F(RegistryParameters, options_come_from_the_environment_word_by_word) {
    setenv("TARVO_REGISTRY_PARAMS", "-i 0 -x -k -l 5 -system -dir /opt/regd", 1);
    regdKeepBackup = 0;
    regdFlushInterval = 42;
    tvSetRegistryDaemonParamsEx(nullptr);
    EXPECT_EQ(regdKeepBackup, 1);
    EXPECT_EQ(regdLogLines, 5);
    EXPECT_EQ(regdSystemDaemon, 1);
    EXPECT_STREQ(regdExecLocation, "/opt/regd");
    EXPECT_EQ(regdFlushInterval, 42);
    EXPECT_EQ(regdVerbose, 0);
    EXPECT_EQ(regdLocation, nullptr);
}

TEST_F(RegistryParameters, every_option_has_its_place) {
    char words[] = "-d /a -i 1 -l 2 -m 3 -n 4 -p 5 -s 6 -v -dir /b";
    tvSetRegistryDaemonParamsEx(words);
    EXPECT_STREQ(regdLocation, "/a");
    ExpectOneToSix();
    EXPECT_EQ(regdVerbose, 1);
    EXPECT_STREQ(regdExecLocation, "/b");
    EXPECT_EQ(regdSystemDaemon, 0);
}

TEST_F(RegistryParameters, a_zero_changes_no_number_and_only_the_flush_interval_refuses_negative_ones) {
    char first[] = "-i 1 -l 2 -m 3 -n 4 -p 5 -s 6";
    tvSetRegistryDaemonParamsEx(first);
    char zeros[] = "-i 0 -l 0 -m zero -n 0 -p 0 -s 0";
    tvSetRegistryDaemonParamsEx(zeros);
    ExpectOneToSix();
    for (std::string last : {"-i", "-l", "-m", "-n", "-p", "-s"}) {
        tvSetRegistryDaemonParamsEx(last.data()); // no value follows
    }
    EXPECT_EQ(regdFlushInterval, 1);
    EXPECT_EQ(regdSems, 6);
    char negative[] = "-i -1 -l -2 -p -5";
    tvSetRegistryDaemonParamsEx(negative);
    EXPECT_EQ(regdFlushInterval, 1);
    EXPECT_EQ(regdLogLines, -2);
    EXPECT_EQ(regdPingCheckInterval, -5);
}

TEST_F(RegistryParameters, a_later_path_takes_the_place_of_an_earlier_one_and_a_missing_one_of_nothing) {
    char words[] = "-d /a -d /b -dir /c -dir";
    tvSetRegistryDaemonParamsEx(words);
    EXPECT_STREQ(regdLocation, "/b");
    EXPECT_STREQ(regdExecLocation, "/c");
    char last[] = "-d";
    tvSetRegistryDaemonParamsEx(last);
    EXPECT_STREQ(regdLocation, "/b");
}

TEST_F(RegistryParameters, an_option_takes_the_next_word_even_when_it_looks_like_an_option) {
    char words[] = "-d -v -l -system";
    tvSetRegistryDaemonParamsEx(words);
    EXPECT_STREQ(regdLocation, "-v");
    EXPECT_EQ(regdVerbose, 0);
    EXPECT_EQ(regdLogLines, 0);
    EXPECT_EQ(regdSystemDaemon, 0);
}

TEST_F(RegistryParameters, words_match_as_a_whole_and_are_separated_by_blanks_only) {
    char words[] = "-V -systems --v \t-v -k\n";
    regdKeepBackup = 0;
    tvSetRegistryDaemonParamsEx(words);
    EXPECT_EQ(regdVerbose, 0);
    EXPECT_EQ(regdSystemDaemon, 0);
    EXPECT_EQ(regdKeepBackup, 0);
}

TEST_F(RegistryParameters, the_environment_variable_itself_is_cut_up_deliberate) {
    setenv("TARVO_REGISTRY_PARAMS", "-v -system", 1);
    tvSetRegistryDaemonParamsEx(nullptr);
    EXPECT_EQ(regdSystemDaemon, 1);
    EXPECT_STREQ(getenv("TARVO_REGISTRY_PARAMS"), "-v");

    regdVerbose = regdSystemDaemon = 0;
    tvSetRegistryDaemonParamsEx(nullptr);
    EXPECT_EQ(regdVerbose, 1);
    EXPECT_EQ(regdSystemDaemon, 0);
}

TEST_F(RegistryParameters, without_text_and_variable_nothing_happens) {
    tvSetRegistryDaemonParamsEx(nullptr);
    EXPECT_EQ(regdKeepBackup, 1);
    EXPECT_EQ(regdLocation, nullptr);
}

TEST_F(RegistryParameters, one_call_stores_what_counts) {
    char location[] = "/a";
    tvSetRegistryDaemonParams(location, 3, 0, 4, 5, 1, 1);
    EXPECT_STREQ(regdLocation, "/a");
    EXPECT_NE(regdLocation, location);
    EXPECT_EQ(regdFlushInterval, 3);
    EXPECT_EQ(regdKeepBackup, 0);
    EXPECT_EQ(regdLogLines, 4);
    EXPECT_EQ(regdPingCheckInterval, 5);
    EXPECT_EQ(regdVerbose, 1);
    EXPECT_EQ(regdSystemDaemon, 1);

    tvSetRegistryDaemonParams(nullptr, 0, 7, 0, 0, 0, 0);
    EXPECT_STREQ(regdLocation, "/a");
    EXPECT_EQ(regdFlushInterval, 3);
    EXPECT_EQ(regdKeepBackup, 7);
    EXPECT_EQ(regdLogLines, 4);
    EXPECT_EQ(regdPingCheckInterval, 5);
    EXPECT_EQ(regdVerbose, 0);
    EXPECT_EQ(regdSystemDaemon, 0);

    tvSetRegistryDaemonParams(nullptr, -3, 0, -4, -5, 0, 0);
    EXPECT_EQ(regdFlushInterval, 3);
    EXPECT_EQ(regdLogLines, -4);
    EXPECT_EQ(regdPingCheckInterval, 5);
}

TEST_F(RegistryParameters, permissions_can_be_withdrawn) {
    EXPECT_EQ(tvIsSystemRegistryConnectDisabled(), 0);
    EXPECT_EQ(tvIsLocalRegistryConnectDisabled(), 0);
    tvDisableLocalRegistryConnect();
    EXPECT_EQ(tvIsLocalRegistryConnectDisabled(), 1);
    EXPECT_EQ(tvIsSystemRegistryConnectDisabled(), 0);
    tvDisableSystemRegistryConnect();
    EXPECT_EQ(tvIsSystemRegistryConnectDisabled(), 1);
}

// --- address -------------------------------------------------------------------------------------------------------

TEST_F(RegistryParameters, the_address_has_host_program_version_and_transport) {
    setenv("TARVO_REGISTRY_HOST", "regd.example.net", 1);
    char host[registryHostBytes] = "";
    unsigned program = 0;
    unsigned version = 0;
    char transport[4] = "";
    tvGenRegistryONCAddr(host, &program, &version, transport);
    EXPECT_STREQ(host, "regd.example.net");
    EXPECT_EQ(program, 805503036u + OwnOffset());
    EXPECT_EQ(version, 2u);
    EXPECT_STREQ(transport, "tcp");
}

TEST_F(RegistryParameters, a_given_host_name_is_left_alone_and_an_unset_one_becomes_this_hosts) {
    setenv("TARVO_REGISTRY_HOST", "regd", 1);
    char given[registryHostBytes] = "far";
    tvGenRegistryONCAddr(given, nullptr, nullptr, nullptr);
    EXPECT_STREQ(given, "far");

    unsetenv("TARVO_REGISTRY_HOST");
    char own[registryHostBytes] = "";
    char expected[registryHostBytes] = "";
    (void)gethostname(expected, sizeof expected - 1);
    tvGenRegistryONCAddr(own, nullptr, nullptr, nullptr);
    EXPECT_STREQ(own, expected);
}

TEST_F(RegistryParameters, an_empty_registry_host_is_taken_as_it_is) {
    setenv("TARVO_REGISTRY_HOST", "", 1);
    char host[registryHostBytes] = "";
    tvGenRegistryONCAddr(host, nullptr, nullptr, nullptr);
    EXPECT_STREQ(host, "");
}

TEST_F(RegistryParameters, a_host_name_longer_than_its_buffer_is_cut) {
    setenv("TARVO_REGISTRY_HOST", std::string(1000, 'h').c_str(), 1);
    char host[registryHostBytes] = "";
    tvGenRegistryONCAddr(host, nullptr, nullptr, nullptr);
    EXPECT_EQ(std::strlen(host), registryHostBytes - 1);
}

TEST_F(RegistryParameters, the_program_number_is_computed_once_a_process) {
    setenv("TARVO_REGISTRY_BASE", "1000", 1);
    EXPECT_EQ(ProgramNumber(), 1000u + OwnOffset());
    setenv("TARVO_REGISTRY_BASE", "2000", 1);
    regdSystemDaemon = 1;
    EXPECT_EQ(ProgramNumber(), 1000u + OwnOffset());
}

// Symptom: a base above 2147483647 gave one program number in the 32-bit build and another in the 64-bit build. Cause:
// strtol stops at the word size of the machine.
TEST_F(RegistryParameters, a_base_beyond_a_32_bit_word_is_the_nearest_within_at_either_word_size) {
    const std::pair<const char *, std::uint32_t> bases[] = {
        {"2147483647", 0x7FFFFFFF},           {"2147483648", 0x7FFFFFFF},  {"3000000000", 0x7FFFFFFF},
        {"4294967296", 0x7FFFFFFF},           {"-2147483648", 0x80000000}, {"-2147483649", 0x80000000},
        {"99999999999999999999", 0x7FFFFFFF}, {"-1", 0xFFFFFFFF},          {"many", 0},
    };
    for (const auto &[text, base] : bases) {
        tvreg_prognum = 0;
        setenv("TARVO_REGISTRY_BASE", text, 1);
        EXPECT_EQ(ProgramNumber(), base + OwnOffset()) << text;
    }
}

TEST_F(RegistryParameters, an_option_beyond_a_32_bit_word_is_the_nearest_within_at_either_word_size) {
    char options[] = "-l 4294967297 -n -4294967295 -p 2147483648";
    tvSetRegistryDaemonParamsEx(options);
    EXPECT_EQ(regdLogLines, INT_MAX);
    EXPECT_EQ(regdSemaphoreProc, INT_MIN);
    EXPECT_EQ(regdPingCheckInterval, INT_MAX);
}

TEST_F(RegistryParameters, the_system_daemon_has_the_base_number_itself) {
    regdSystemDaemon = 1;
    EXPECT_EQ(ProgramNumber(), 0x3003003Cu);
}

TEST_F(RegistryParameters, each_user_has_a_number_of_his_own_in_sixteen_bits) {
    if (getuid() != 0) GTEST_SKIP() << "only root can compute the numbers of other users";
    EXPECT_EQ(ProgramNumber(), 0x3003003Cu + 1);
    tvreg_prognum = 0;
    EXPECT_EQ(ProgramNumberOfUser(500), 805503536u);
    EXPECT_EQ(ProgramNumberOfUser(70000), 805503036u + 4464u);
}

TEST_F(RegistryParameters, a_name_is_cut_at_its_first_dot) {
    const auto cut = [](std::string name) {
        tvGetPartialName(name.data());
        return std::string(name.c_str());
    };
    EXPECT_EQ(cut("regd.example.net"), "regd");
    EXPECT_EQ(cut("regd"), "regd");
    EXPECT_EQ(cut(".net"), "");
    EXPECT_EQ(cut(""), "");
}

// --- version -------------------------------------------------------------------------------------------------------

TEST(TvVerifyRegistryVersion, accepts_2_3_0_and_everything_newer) {
    EXPECT_EQ(tvVerifyRegistryVersion(2, 3, 0), 0);
    EXPECT_EQ(tvVerifyRegistryVersion(2, 3, 1), 3);
    EXPECT_EQ(tvVerifyRegistryVersion(2, 4, 0), 2);
    EXPECT_EQ(tvVerifyRegistryVersion(2, 0xFFFFFFFF, 0), 2);
    EXPECT_EQ(tvVerifyRegistryVersion(3, 0, 0), 1);
    EXPECT_EQ(tvVerifyRegistryVersion(0xFFFFFFFF, 0, 0), 1);
}

TEST(TvVerifyRegistryVersion, refuses_everything_older) {
    EXPECT_EQ(tvVerifyRegistryVersion(2, 2, 9), -2);
    EXPECT_EQ(tvVerifyRegistryVersion(2, 0, 0), -2);
    EXPECT_EQ(tvVerifyRegistryVersion(1, 9, 9), -1);
    EXPECT_EQ(tvVerifyRegistryVersion(0, 0, 0), -1);
}
