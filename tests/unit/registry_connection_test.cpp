// SPDX-License-Identifier: MIT
// Connections: who connects to what and when, handshake, identity, ping, version, tear-down, and connections that
// break.
#include "tests/support/registry_fixture.h"

#include "registry/tvpthread.h"
#include "util/ktl_host.h"

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using RegistryConnections = FreshRegistryTest;

constexpr char ok[] = "00000001 00000000";
constexpr char version230[] = "00000001 00000000 00000002 00000003 00000000";
constexpr char systemProgram[] = " 805503036 2"; // 0x3003003C, version 2

std::string LocalHostName() {
    char name[registryHostBytes] = "";
    (void)gethostname(name, sizeof name - 1);
    return name;
}

// The host that TARVO_REGISTRY_HOST names is played by a script, which answers a handshake and a ping.
void PlayLocalDaemon(Script &script, const char *host = "regd") {
    setenv("TARVO_REGISTRY_HOST", host, 1);
    dialPlan.hosts[host] = &script;
    script.Answer(version230);
    script.Answer(ok);
}

// An operation finds the local daemon, from the handshake to its answer.
void ReachLocalDaemon(Script &daemon) {
    PlayLocalDaemon(daemon);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

// A remote machine. Its ping goes to the local daemon's script, when there is one.
void PlayMachine(const char *host, Script &script, Script *local = nullptr) {
    dialPlan.hosts[host] = &script;
    script.Answer(version230);
    if (local != nullptr) local->Answer(ok);
}

std::vector<std::uint32_t> Procedures(const Script &script) {
    std::vector<std::uint32_t> procedures;
    for (const RecordedCall &call : script.calls) {
        procedures.push_back(call.procedure);
    }
    return procedures;
}

using ProcedureList = std::vector<std::uint32_t>;

std::string Word(std::uint32_t value) {
    char digits[9];
    (void)std::snprintf(digits, sizeof digits, "%08x", value);
    return digits;
}

// A user name as an XDR string.
std::string Text(const std::string &text) {
    Bytes bytes(text.begin(), text.end());
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return Word(static_cast<std::uint32_t>(text.size())) + InHex(bytes);
}

// The name by which a process of these user ids goes with this USER, which may be null. Asked in a child.
std::string NameOfUser(uid_t uid, uid_t effectiveUid, const char *user) {
    int answer[2];
    if (pipe(answer) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        user != nullptr ? setenv("USER", user, 1) : unsetenv("USER");
        if (setresuid(uid, effectiveUid, static_cast<uid_t>(-1)) != 0) _exit(1);
        (void)RegFlushKey(1);
        (void)!write(answer[1], g_userData.name, std::strlen(g_userData.name));
        _exit(0);
    }
    close(answer[1]);
    char name[64] = "";
    (void)!read(answer[0], name, sizeof name - 1);
    close(answer[0]);
    (void)waitpid(child, nullptr, 0);
    return name;
}

std::string OwnIdentity() { return Word(6) + Word(getuid()) + Text(g_userData.name) + Word(_ktl_gethostid()); }

} // namespace

// --- connecting ----------------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, the_first_operation_connects_shakes_hands_and_pings_the_next_finds_the_connection) {
    Script &daemon = NewScript();
    PlayLocalDaemon(daemon);
    daemon.Answer(ok);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    EXPECT_EQ(RegFlushKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS);
    EXPECT_EQ(Procedures(daemon), (ProcedureList{26, 27, 9, 9}));
    EXPECT_EQ(dialPlan.dialled, (std::vector<std::string>{std::string("regd") + systemProgram}));
    EXPECT_EQ(numConnections, 1);
    EXPECT_EQ(nextClientNum, 1);
    ASSERT_NE(clntArray[0], nullptr);
    EXPECT_EQ(clntArray[0]->hostName, nullptr);
}

TEST_F(RegistryConnections, handshake_and_ping_carry_level_user_host_process_and_mode) {
    Script &daemon = NewScript();
    ReachLocalDaemon(daemon);
    ASSERT_EQ(daemon.calls.size(), 3u);
    EXPECT_EQ(InHex(daemon.calls[0].argument), InHex(Hex(OwnIdentity())));
    EXPECT_EQ(InHex(daemon.calls[1].argument),
              InHex(Hex(OwnIdentity() + Word(static_cast<std::uint32_t>(getpid())) + Word(0))));
}

TEST_F(RegistryConnections, a_host_name_is_dialled_short_first_and_then_whole) {
    Script &daemon = NewScript();
    setenv("TARVO_REGISTRY_HOST", "regd.example.net", 1);
    dialPlan.hosts["regd.example.net"] = &daemon;
    daemon.Answer(version230);
    daemon.Answer(ok);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(dialPlan.dialled, (std::vector<std::string>{std::string("regd") + systemProgram,
                                                          std::string("regd.example.net") + systemProgram}));
}

TEST_F(RegistryConnections, an_address_is_never_shortened) {
    setenv("TARVO_REGISTRY_HOST", "127.0.0.9", 1);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(dialPlan.dialled, (std::vector<std::string>(2, std::string("127.0.0.9") + systemProgram)));
}

TEST_F(RegistryConnections, without_a_registry_host_this_host_is_dialled) {
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    ASSERT_EQ(dialPlan.dialled.size(), 2u);
    EXPECT_EQ(dialPlan.dialled[1], LocalHostName() + systemProgram);
}

TEST_F(RegistryConnections, go_to_the_system_program_whatever_base_and_options_say_deliberate) {
    Script &daemon = NewScript();
    PlayLocalDaemon(daemon);
    daemon.Answer(ok);
    setenv("TARVO_REGISTRY_BASE", "1000", 1);
    tvDisableLocalRegistryConnect();
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(dialPlan.dialled, (std::vector<std::string>{std::string("regd") + systemProgram}));
    EXPECT_NE(tvreg_prognum, 0u);
    EXPECT_NE(tvreg_prognum, REGDAEMONPROG);
}

TEST_F(RegistryConnections, read_the_daemon_options_from_the_environment) {
    setenv("TARVO_REGISTRY_PARAMS", "-l 5 -system", 1);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(regdLogLines, 5);
    EXPECT_EQ(regdSystemDaemon, 1);
}

TEST_F(RegistryConnections, read_the_options_when_the_program_number_has_been_computed) {
    setenv("TARVO_REGISTRY_PARAMS", "-system", 1);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(regdSystemDaemon, 1);
    EXPECT_EQ(tvreg_prognum, REGDAEMONPROG + ((getuid() != 0 ? getuid() : 1) & 0xFFFF));
}

TEST_F(RegistryConnections, no_daemon_is_1016_and_leaves_no_entry_so_that_the_next_operation_tries_again) {
    Script &daemon = NewScript();
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(connectFailMsg, 1);
    EXPECT_EQ(wrongVersionMsg, 0);
    EXPECT_EQ(clntArray, nullptr);
    EXPECT_EQ(numConnections, 0);

    ReachLocalDaemon(daemon);
}

TEST_F(RegistryConnections, forbidden_by_the_process_nothing_is_dialled) {
    Script &daemon = NewScript();
    PlayLocalDaemon(daemon);
    EXPECT_EQ(tvIsSystemRegistryConnectDisabled(), 0);
    tvDisableSystemRegistryConnect();
    EXPECT_EQ(tvIsSystemRegistryConnectDisabled(), 1);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_TRUE(dialPlan.dialled.empty());
    EXPECT_EQ(connectFailMsg, 1);
}

TEST_F(RegistryConnections, a_lost_handshake_closes_the_connection) {
    Script &daemon = NewScript();
    setenv("TARVO_REGISTRY_HOST", "regd", 1);
    dialPlan.hosts["regd"] = &daemon;
    daemon.Fail(RPC_CANTRECV);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(wrongVersionMsg, 1);
    EXPECT_EQ(connectFailMsg, 0);
    EXPECT_EQ(daemon.clientsAlive, 0);
    EXPECT_EQ(clntArray, nullptr);
}

TEST_F(RegistryConnections, versions_from_2_3_0_on_are_accepted_and_older_ones_refused) {
    struct {
        const char *answer;
        LONG rc;
    } const cases[] = {
        {"00000001 00000000 00000002 00000003 00000000", ERROR_SUCCESS},
        {"00000001 00000000 00000002 00000003 00000001", ERROR_SUCCESS},
        {"00000001 00000000 00000002 00000004 00000000", ERROR_SUCCESS},
        {"00000001 00000000 00000003 00000000 00000000", ERROR_SUCCESS},
        {"00000001 00000000 00000002 00000002 00000009", ERROR_REGISTRY_IO_FAILED},
        {"00000001 00000000 00000001 00000009 00000009", ERROR_REGISTRY_IO_FAILED},
        {"00000001 00000000 00000000 00000000 00000000", ERROR_REGISTRY_IO_FAILED},
        {"00000000", ERROR_REGISTRY_IO_FAILED},                          // no body: version 0.0.0
        {"00000001 00000005 00000002 00000003 00000000", ERROR_SUCCESS}, // the status is not looked at
    };
    for (const auto &c : cases) {
        tvRegistryCleanConnections(1);
        tvRegistryInitData();
        Script &daemon = NewScript();
        setenv("TARVO_REGISTRY_HOST", "regd", 1);
        dialPlan.hosts["regd"] = &daemon;
        daemon.Answer(c.answer);
        daemon.Answer(ok);
        daemon.Answer(ok);
        EXPECT_EQ(RegFlushKey(1), c.rc) << c.answer;
        EXPECT_EQ(daemon.clientsAlive, c.rc == ERROR_SUCCESS ? 1 : 0) << c.answer;
        daemon.Answer(ok);
        tvRegistryCleanConnections(1);
    }
}

TEST_F(RegistryConnections, a_ping_without_an_answer_does_no_harm) {
    Script &daemon = NewScript();
    setenv("TARVO_REGISTRY_HOST", "regd", 1);
    dialPlan.hosts["regd"] = &daemon;
    daemon.Answer(version230);
    daemon.Fail(RPC_PROCUNAVAIL);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

// --- who we are ----------------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, the_identity_is_taken_once_a_process) {
    (void)RegFlushKey(1);
    EXPECT_EQ(userDataSet, 1);
    EXPECT_EQ(g_userData.version, 6u);
    EXPECT_EQ(g_userData.uid, getuid());
    EXPECT_EQ(g_userData.hostid, _ktl_gethostid());
    char *name = g_userData.name;
    ASSERT_NE(name, nullptr);
    EXPECT_NE(name[0], '\0');
    (void)RegFlushKey(1);
    EXPECT_EQ(g_userData.name, name);
}

TEST_F(RegistryConnections, a_user_id_with_an_account_is_named_by_it_whatever_USER_says) {
    const passwd *account = getpwuid(geteuid());
    if (account == nullptr) GTEST_SKIP() << "this user id has no account";
    EXPECT_EQ(NameOfUser(getuid(), geteuid(), "ann"), account->pw_name);
    EXPECT_EQ(NameOfUser(getuid(), geteuid(), nullptr), account->pw_name);
}

TEST_F(RegistryConnections, a_user_id_without_an_account_is_named_by_USER_or_by_its_number) {
    if (getuid() != 0) GTEST_SKIP() << "only root can become a user id without an account";
    EXPECT_EQ(NameOfUser(3999999, 3999999, "ann"), "ann");
    EXPECT_EQ(NameOfUser(3999999, 3999999, ""), "");
    EXPECT_EQ(NameOfUser(3999999, 3999999, nullptr), "uid3999999");
    EXPECT_EQ(NameOfUser(4000000000, 4000000000, nullptr), "uid-294967296");
}

// libc looks for the account of the effective user id.
TEST_F(RegistryConnections, root_without_an_account_is_named_by_USER_or_root) {
    if (getuid() != 0) GTEST_SKIP() << "only root can take another effective user id";
    EXPECT_EQ(NameOfUser(0, 3999999, "ann"), "ann");
    EXPECT_EQ(NameOfUser(0, 3999999, nullptr), "root");
}

TEST_F(RegistryConnections, the_process_id_is_the_first_one_asked_for_even_after_a_fork_deliberate) {
    const pid_t mine = tarvo_getpid();
    EXPECT_EQ(mine, getpid());
    EXPECT_EQ(pid_init, 1);
    const pid_t child = fork();
    if (child == 0) _exit(tarvo_getpid() == mine ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// --- keys and slots ------------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, a_key_with_number_3_goes_over_slot_3_without_the_number) {
    Script &local = NewScript();
    Script &third = NewScript();
    Connect(0, &local);
    Connect(3, &third, "three");
    HKEY key = 0x80300002;
    int clientNum = -1;
    EXPECT_EQ(tvConnectRegistryDaemon(nullptr, &key, &clientNum), clntArray[3]->client);
    EXPECT_EQ(key, 0x80000002u);
    EXPECT_EQ(clientNum, 3);
    key = HKEY_LOCAL_MACHINE;
    EXPECT_EQ(tvConnectRegistryDaemon(nullptr, &key, &clientNum), clntArray[0]->client);
    EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(clientNum, 0);
    EXPECT_TRUE(local.calls.empty());
    EXPECT_TRUE(third.calls.empty());
}

TEST_F(RegistryConnections, a_key_of_no_connection_goes_to_the_local_daemon_over_a_new_connection) {
    Script &before = NewScript();
    Script &after = NewScript();
    Connect(0, &before);
    PlayLocalDaemon(after);
    after.Answer(ok);
    EXPECT_EQ(RegFlushKey(0x00500007), ERROR_SUCCESS);
    EXPECT_EQ(Procedures(after), (ProcedureList{26, 27, 9}));
    EXPECT_EQ(before.clientsAlive, 0);
    EXPECT_EQ(nextClientNum, 1);
}

TEST_F(RegistryConnections, the_table_grows_by_two_slots) {
    Script &daemon = NewScript();
    ReachLocalDaemon(daemon);
    EXPECT_EQ(connectionSlots, 2);
    for (std::size_t i = 0; i < 3; ++i) {
        PlayMachine(("m" + std::to_string(i)).c_str(), NewScript(), &daemon);
        HKEY key = 0;
        EXPECT_EQ(RegConnectRegistryA(("m" + std::to_string(i)).c_str(), HKEY_LOCAL_MACHINE, &key), ERROR_SUCCESS);
        EXPECT_EQ(key, 0x80000002u + (static_cast<HKEY>(i + 1) << 20));
    }
    EXPECT_EQ(connectionSlots, 4);
    EXPECT_EQ(numConnections, 4);
    EXPECT_EQ(nextClientNum, 4);
}

// --- remote machines -----------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, a_machine_is_connected_once_and_its_keys_carry_its_number) {
    Script &local = NewScript();
    Script &machine = NewScript();
    PlayLocalDaemon(local);
    local.Answer(ok);
    (void)RegFlushKey(1);
    PlayMachine("far", machine, &local);
    HKEY key = 0;
    EXPECT_EQ(RegConnectRegistryA("far", HKEY_LOCAL_MACHINE, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x80100002u);
    EXPECT_STREQ(clntArray[1]->hostName, "far");
    EXPECT_EQ(Procedures(machine), (ProcedureList{26}));
    EXPECT_EQ(Procedures(local), (ProcedureList{26, 27, 9, 27})); // the ping goes to the local daemon

    HKEY again = 0;
    EXPECT_EQ(RegConnectRegistryA("far", 0x80700003, &again), ERROR_SUCCESS);
    EXPECT_EQ(again, 0x80100003u);
    EXPECT_EQ(machine.calls.size(), 1u);

    machine.Answer("00000001 00000000 00000042");
    HKEY below = 0;
    EXPECT_EQ(RegOpenKeyExA(key, "a", 0, 0, &below), ERROR_SUCCESS);
    EXPECT_EQ(below, 0x00100042u);
    EXPECT_EQ(Procedures(machine), (ProcedureList{26, 14}));
}

TEST_F(RegistryConnections, machines_connected_before_the_local_daemon_keep_their_numbers) {
    Script &one = NewScript();
    Script &two = NewScript();
    Script &local = NewScript();
    PlayMachine("one", one);
    PlayMachine("two", two);
    HKEY first = 0;
    HKEY second = 0;
    EXPECT_EQ(RegConnectRegistryA("one", HKEY_USERS, &first), ERROR_SUCCESS);
    EXPECT_EQ(RegConnectRegistryA("two", HKEY_USERS, &second), ERROR_SUCCESS);
    EXPECT_EQ(first, 0x80100003u);
    EXPECT_EQ(second, 0x80200003u);
    one.Answer(ok);
    EXPECT_EQ(RegFlushKey(first), ERROR_SUCCESS);
    PlayLocalDaemon(local);
    local.Answer(ok);
    EXPECT_EQ(RegFlushKey(HKEY_USERS), ERROR_SUCCESS);
    two.Answer(ok);
    EXPECT_EQ(RegFlushKey(second), ERROR_SUCCESS);
    EXPECT_EQ(Procedures(one), (ProcedureList{26, 9}));
    EXPECT_EQ(Procedures(two), (ProcedureList{26, 9}));
    EXPECT_EQ(Procedures(local), (ProcedureList{26, 27, 9}));

    Script &three = NewScript();
    PlayMachine("three", three, &local);
    HKEY third = 0;
    EXPECT_EQ(RegConnectRegistryA("three", HKEY_USERS, &third), ERROR_SUCCESS);
    EXPECT_EQ(third, 0x80300003u);
}

TEST_F(RegistryConnections, an_empty_machine_name_is_1016_and_no_name_or_the_hosts_own_is_the_local_daemon) {
    Script &local = NewScript();
    PlayLocalDaemon(local);
    HKEY key = 7;
    EXPECT_EQ(RegConnectRegistryA("", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(key, 7u);
    EXPECT_TRUE(dialPlan.dialled.empty());

    EXPECT_EQ(RegConnectRegistryA(nullptr, HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_USERS);
    EXPECT_EQ(Procedures(local), (ProcedureList{26, 27}));
    EXPECT_EQ(RegConnectRegistryA(LocalHostName().c_str(), 0x80400003, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_USERS);
    EXPECT_EQ(local.calls.size(), 2u);
    EXPECT_EQ(numConnections, 1);
}

TEST_F(RegistryConnections, an_unreachable_machine_or_local_daemon_is_1016) {
    HKEY key = 7;
    EXPECT_EQ(RegConnectRegistryA("far", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegConnectRegistryA(nullptr, HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(key, 7u);
    EXPECT_EQ(nextClientNum, 1);
    EXPECT_EQ(RegConnectRegistryA("far", HKEY_USERS, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(RegistryConnections, a_machine_name_is_taken_as_given) {
    Script &machine = NewScript();
    PlayMachine("\\\\far", machine);
    HKEY key = 0;
    EXPECT_EQ(RegConnectRegistryA("\\\\far", HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(RegConnectRegistryA("far", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
}

TEST_F(RegistryConnections, the_wide_form_answers_2_and_connects_nothing_deliberate) {
    const WCHAR name[] = {'f', 0};
    HKEY key = 7;
    EXPECT_EQ(RegConnectRegistryW(name, HKEY_USERS, &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, 7u);
    EXPECT_TRUE(dialPlan.dialled.empty());
}

TEST_F(RegistryConnections, the_machine_after_number_255_gets_a_key_of_the_local_daemon_deliberate) {
    Script &local = NewScript();
    Script &last = NewScript();
    Connect(0, &local);
    Connect(254, &last, "the last but one");
    PlayMachine("last", last, &local);
    HKEY key = 0;
    EXPECT_EQ(RegConnectRegistryA("last", HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x8FF00003u);
    const std::size_t dialled = dialPlan.dialled.size();
    EXPECT_EQ(RegConnectRegistryA("one too many", HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_USERS);
    EXPECT_EQ(dialPlan.dialled.size(), dialled);
}

// --- ping and version ----------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, ping_sends_process_and_mode_and_returns_the_status) {
    Script &daemon = NewScript();
    ReachLocalDaemon(daemon);
    daemon.Answer("00000001 0000000d");
    EXPECT_EQ(RegPingDaemon(7), ERROR_INVALID_DATA);
    EXPECT_EQ(InHex(daemon.calls.back().argument),
              InHex(Hex(OwnIdentity() + Word(static_cast<std::uint32_t>(getpid())) + Word(7))));
    daemon.Answer("00000000");
    EXPECT_EQ(RegPingDaemon(0), ERROR_SUCCESS);
}

TEST_F(RegistryConnections, ping_asks_for_the_user_id_anew) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    g_userData = {tarvoVersion, getuid() + 1, nullptr, 7};
    userDataSet = 1;
    daemon.Answer(ok);
    EXPECT_EQ(RegPingDaemon(3), ERROR_SUCCESS);
    EXPECT_EQ(InHex(daemon.calls.back().argument), InHex(Hex(Word(6) + Word(getuid()) + Word(0) + Word(7) +
                                                             Word(static_cast<std::uint32_t>(getpid())) + Word(3))));
}

TEST_F(RegistryConnections, ping_without_an_answer_is_1016_and_minus_1_for_mode_2) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    EXPECT_EQ(RegPingDaemon(0), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(2), -1);
    EXPECT_EQ(daemon.calls.size(), 3u);
}

TEST_F(RegistryConnections, ping_without_a_connection_is_1016_in_every_mode_and_makes_none) {
    Script &daemon = NewScript();
    PlayLocalDaemon(daemon);
    EXPECT_EQ(RegPingDaemon(0), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(2), ERROR_REGISTRY_IO_FAILED);
    EXPECT_TRUE(dialPlan.dialled.empty());
}

TEST_F(RegistryConnections, the_version_is_handed_back_to_the_pointers_given) {
    Script &daemon = NewScript();
    ReachLocalDaemon(daemon);
    daemon.Answer("00000001 00000009 00000002 00000005 00000007");
    DWORD major = 0;
    DWORD minor = 0;
    DWORD patch = 0;
    EXPECT_EQ(RegQueryVersionInfo(&major, &minor, &patch), 9);
    EXPECT_EQ(major, 2u);
    EXPECT_EQ(minor, 5u);
    EXPECT_EQ(patch, 7u);
    EXPECT_EQ(InHex(daemon.calls.back().argument), InHex(Hex(OwnIdentity())));
    daemon.Answer(version230);
    EXPECT_EQ(RegQueryVersionInfo(nullptr, nullptr, nullptr), ERROR_SUCCESS);
    daemon.Fail(RPC_SYSTEMERROR);
    EXPECT_EQ(RegQueryVersionInfo(&major, nullptr, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(major, 2u);
}

TEST_F(RegistryConnections, the_version_without_a_connection_is_1016_and_makes_none) {
    EXPECT_EQ(RegQueryVersionInfo(nullptr, nullptr, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_TRUE(dialPlan.dialled.empty());
}

// --- connections that break ----------------------------------------------------------------------------------------

TEST_F(RegistryConnections, a_broken_connection_is_1016_once_and_then_made_anew_in_its_slot) {
    for (const clnt_stat how : {RPC_CANTSEND, RPC_CANTRECV}) {
        tvRegistryInitData();
        Script &before = NewScript();
        Script &after = NewScript();
        PlayLocalDaemon(before);
        before.Answer(ok);
        (void)RegFlushKey(1);
        before.Fail(how);
        EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
        EXPECT_EQ(before.clientsAlive, 0);
        EXPECT_NE(clntArray[0], nullptr);

        PlayLocalDaemon(after);
        after.Answer(ok);
        EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
        EXPECT_EQ(Procedures(after), (ProcedureList{26, 27, 9}));
        EXPECT_EQ(numConnections, 1);
        EXPECT_EQ(nextClientNum, 1);
        after.Answer(ok);
        tvRegistryCleanConnections(1);
    }
}

TEST_F(RegistryConnections, a_broken_machine_is_dialled_by_its_own_name_and_moves_no_other) {
    Script &local = NewScript();
    Script &one = NewScript();
    Script &two = NewScript();
    Connect(0, &local);
    Connect(1, &one, "one");
    Connect(2, &two, "two");
    one.Fail(RPC_CANTRECV);
    EXPECT_EQ(RegFlushKey(0x00100007), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegFlushKey(0x00100007), ERROR_REGISTRY_IO_FAILED); // still away
    EXPECT_EQ(dialPlan.dialled.back(), std::string("one") + systemProgram);

    Script &oneAgain = NewScript();
    PlayMachine("one", oneAgain, &local);
    oneAgain.Answer(ok);
    EXPECT_EQ(RegFlushKey(0x00100007), ERROR_SUCCESS);
    EXPECT_EQ(Procedures(oneAgain), (ProcedureList{26, 9}));
    EXPECT_STREQ(clntArray[1]->hostName, "one");
    EXPECT_EQ(nextClientNum, 3);
    two.Answer(ok);
    EXPECT_EQ(RegFlushKey(0x00200007), ERROR_SUCCESS);
}

TEST_F(RegistryConnections, connecting_a_broken_machine_again_makes_its_connection_anew) {
    Script &local = NewScript();
    Script &one = NewScript();
    Connect(0, &local);
    Connect(1, &one, "one");
    one.Fail(RPC_CANTSEND);
    EXPECT_EQ(RegFlushKey(0x00100007), ERROR_REGISTRY_IO_FAILED);
    HKEY key = 0;
    EXPECT_EQ(RegConnectRegistryA("one", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    Script &oneAgain = NewScript();
    PlayMachine("one", oneAgain, &local);
    EXPECT_EQ(RegConnectRegistryA("one", HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x80100003u);
}

TEST_F(RegistryConnections, a_connection_that_breaks_at_its_first_ping_is_1016_and_tried_again) {
    Script &first = NewScript();
    setenv("TARVO_REGISTRY_HOST", "regd", 1);
    dialPlan.hosts["regd"] = &first;
    first.Answer(version230);
    first.Fail(RPC_CANTRECV);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(first.clientsAlive, 0);
    Script &second = NewScript();
    PlayLocalDaemon(second);
    second.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

TEST_F(RegistryConnections, ping_and_version_notice_a_broken_connection_but_make_no_new_one) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    daemon.Fail(RPC_CANTRECV);
    EXPECT_EQ(RegPingDaemon(2), -1);
    EXPECT_EQ(daemon.clientsAlive, 0);
    EXPECT_EQ(RegQueryVersionInfo(nullptr, nullptr, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_TRUE(dialPlan.dialled.empty());
}

// Symptom: a program that pings with mode 2 heard -1 once and then 1016 for as long as the daemon was gone. Cause: a
// connection that had been closed counted as one that was never made.
TEST_F(RegistryConnections, ping_of_mode_2_goes_on_answering_minus_1_until_the_broken_connection_is_made_anew) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    daemon.Fail(RPC_CANTRECV);
    EXPECT_EQ(RegPingDaemon(2), -1);
    EXPECT_EQ(RegPingDaemon(2), -1);
    EXPECT_EQ(RegPingDaemon(2), -1);
    EXPECT_EQ(RegPingDaemon(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(0), ERROR_REGISTRY_IO_FAILED);
    EXPECT_TRUE(dialPlan.dialled.empty());

    Script &again = NewScript();
    PlayLocalDaemon(again);
    again.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    again.Answer(ok);
    EXPECT_EQ(RegPingDaemon(2), ERROR_SUCCESS);
}

TEST_F(RegistryConnections, a_connection_that_breaks_at_a_version_query_is_closed) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    daemon.Fail(RPC_CANTSEND);
    EXPECT_EQ(RegQueryVersionInfo(nullptr, nullptr, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(daemon.clientsAlive, 0);
    EXPECT_NE(clntArray[0], nullptr);
}

TEST_F(RegistryConnections, an_answer_that_makes_no_sense_keeps_the_connection) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    daemon.Answer("0000");
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

// --- tear-down -----------------------------------------------------------------------------------------------------

TEST_F(RegistryConnections, tear_down_says_farewell_closes_everything_and_blocks_reconnection) {
    Script &local = NewScript();
    Script &machine = NewScript();
    PlayLocalDaemon(local);
    local.Answer(ok);
    (void)RegFlushKey(1);
    PlayMachine("far", machine, &local);
    HKEY key = 0;
    (void)RegConnectRegistryA("far", HKEY_USERS, &key);
    char *hostName = clntArray[1]->hostName;
    local.calls.clear();
    local.Answer(ok);
    pingXtIntervalId = pingThreadHandle = 5;
    tvRegistryCleanConnections(1);

    // Slot 0 goes first, so that the farewell of the second connection finds nobody.
    ASSERT_EQ(Procedures(local), (ProcedureList{27}));
    EXPECT_EQ(InHex(local.calls[0].argument),
              InHex(Hex(OwnIdentity() + Word(static_cast<std::uint32_t>(getpid())) + Word(1))));
    EXPECT_EQ(local.clientsAlive, 0);
    EXPECT_EQ(machine.clientsAlive, 0);
    EXPECT_EQ(clntArray, nullptr);
    EXPECT_EQ(numConnections, 0);
    EXPECT_EQ(nextClientNum, 1);
    EXPECT_EQ(connectionTableDestroyed, 1);
    EXPECT_EQ(pingXtIntervalId, 0);
    EXPECT_EQ(pingThreadHandle, 5);
    EXPECT_STREQ(hostName, "far"); // deliberate: not released with its entry
    std::free(hostName);

    EXPECT_EQ(destructorMsg, 0);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(destructorMsg, 1);
    EXPECT_EQ(RegConnectRegistryA("far", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegConnectRegistryA(nullptr, HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegPingDaemon(0), 1);
}

TEST_F(RegistryConnections, tear_down_makes_the_mutex_and_closes_each_connection_under_it) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    static CLIENT::clnt_ops operations;
    static void (*destroy)(CLIENT *);
    static int mutexWas;
    operations = *clntArray[0]->client->cl_ops;
    destroy = operations.cl_destroy;
    mutexWas = -1;
    operations.cl_destroy = [](CLIENT *client) {
        mutexWas = pthread_mutex_trylock(&tvRegistryMutex);
        destroy(client);
    };
    clntArray[0]->client->cl_ops = &operations;
    btvRegistryMutexNeedToInit = 1;
    daemon.Answer(ok);
    tvRegistryCleanConnections(1);
    EXPECT_EQ(btvRegistryMutexNeedToInit, 0);
    EXPECT_EQ(mutexWas, EBUSY);
    EXPECT_EQ(daemon.clientsAlive, 0);
    ASSERT_EQ(pthread_mutex_trylock(&tvRegistryMutex), 0);
    pthread_mutex_unlock(&tvRegistryMutex);

    tvRegistryInitData();
    Connect(0, &daemon);
    CLIENT *kept = clntArray[0]->client;
    btvRegistryMutexNeedToInit = 1;
    tvRegistryCleanConnections(0);
    EXPECT_EQ(btvRegistryMutexNeedToInit, 0);
    EXPECT_EQ(daemon.clientsAlive, 1);
    clnt_destroy(kept);
}

TEST_F(RegistryConnections, tear_down_without_a_table_blocks_connecting_and_nothing_more) {
    pingXtIntervalId = 5;
    btvRegistryMutexNeedToInit = 1;
    tvRegistryCleanConnections(1);
    EXPECT_EQ(connectionTableDestroyed, 1);
    EXPECT_EQ(pingXtIntervalId, 5);
    EXPECT_EQ(btvRegistryMutexNeedToInit, 1);
}

TEST_F(RegistryConnections, init_data_makes_connecting_possible_again) {
    Script &daemon = NewScript();
    tvRegistryCleanConnections(1);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    pingXtIntervalId = 5;
    pingThreadHandle = 5;
    numConnections = nextClientNum = 5;
    tvRegistryInitData();
    EXPECT_EQ(connectionTableDestroyed, 0);
    EXPECT_EQ(numConnections, 0);
    EXPECT_EQ(nextClientNum, 1);
    EXPECT_EQ(pingXtIntervalId, 0);
    EXPECT_EQ(pingThreadHandle, 0);
    ReachLocalDaemon(daemon);
}

TEST_F(RegistryConnections, init_data_forgets_connections_without_closing_them_or_saying_farewell) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    CLIENT *client = clntArray[0]->client;
    tvRegistryInitData();
    EXPECT_EQ(daemon.clientsAlive, 1);
    EXPECT_TRUE(daemon.calls.empty());
    EXPECT_EQ(clntArray, nullptr);
    clnt_destroy(client);
}

// --- forks ---------------------------------------------------------------------------------------------------------

namespace {

// A thread in the middle of an operation: RegFlushKey, which holds the mutex until the end of this object.
struct Operation {
    static inline std::atomic<bool> begun, ends;
    std::thread thread;

    Operation() {
        begun = ends = false;
        _tvRegistryAPISet[0].reg_flush_key = [](HKEY) -> LONG {
            begun = true;
            while (!ends) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return ERROR_SUCCESS;
        };
        thread = std::thread([] { (void)RegFlushKey(1); });
        while (!begun) {
            std::this_thread::yield();
        }
        _tvRegistryAPISet[0].reg_flush_key = reg_flush_key;
    }
    Operation(const Operation &) = delete;
    Operation &operator=(const Operation &) = delete;
    ~Operation() {
        ends = true;
        thread.join();
    }
};

// Forks. Returns the status as of waitpid of a child that calls `answer`, and ends with what that returns or with
// SIGALRM ten seconds later.
template <typename Answer>
int EndOfChild(Answer answer) {
    const pid_t child = fork();
    if (child == 0) {
        (void)alarm(10);
        _exit(answer());
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    return status;
}

} // namespace

// Symptom: a child that called tvRegistryInitData, as it should, hung when another thread of its parent had been in a
// registry function at the fork. Cause: in the child nobody gives the mutex back.
TEST_F(RegistryConnections, a_child_of_a_fork_amid_an_operation_may_start_anew) {
    Script &parents = NewScript();
    Script &childs = NewScript();
    Connect(0, &parents);
    PlayLocalDaemon(childs);
    childs.Answer(ok);
    {
        const Operation underWay;
        EXPECT_EQ(EndOfChild([&] {
                      tvRegistryInitData();
                      if (numConnections != 0) return 1;
                      if (RegFlushKey(1) != ERROR_SUCCESS) return 2;
                      return childs.calls.size() == 3 && parents.calls.empty() ? 0 : 3;
                  }),
                  0);
    }
    EXPECT_EQ(numConnections, 1);
    parents.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS) << "the parent goes on with its connection";
}

TEST_F(RegistryConnections, a_child_of_a_fork_amid_an_operation_has_no_connections_of_its_parent) {
    Script &parents = NewScript();
    Script &childs = NewScript();
    Connect(0, &parents);
    PlayLocalDaemon(childs);
    childs.Answer(ok);
    const Operation underWay;
    EXPECT_EQ(EndOfChild([&] {
                  if (RegFlushKey(1) != ERROR_SUCCESS) return 1;
                  return childs.calls.size() == 3 && parents.calls.empty() && numConnections == 1 ? 0 : 2;
              }),
              0);
}

TEST_F(RegistryConnections, a_fork_between_operations_leaves_connections_and_a_free_mutex_on_both_sides) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    daemon.Answer(ok);
    ASSERT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(EndOfChild([&] {
                  daemon.Answer(ok);
                  return numConnections == 1 && RegFlushKey(1) == ERROR_SUCCESS ? 0 : 1;
              }),
              0);
    daemon.Answer(ok);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
}

TEST_F(RegistryConnections, a_fork_waits_for_a_short_operation_and_not_for_a_long_one) {
    Script &daemon = NewScript();
    Connect(0, &daemon);
    bool waited = false;
    for (int i = 0; i < 20 && !waited; ++i) { // on a busy machine even this operation may be a long one
        Operation underWay;
        std::thread end([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            Operation::ends = true;
        });
        waited = EndOfChild([] { return numConnections; }) == W_EXITCODE(1, 0);
        end.join();
    }
    EXPECT_TRUE(waited) << "every child has begun without connections";

    const Operation underWay;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(EndOfChild([] { return 0; }), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}
