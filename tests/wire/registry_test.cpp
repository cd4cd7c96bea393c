// SPDX-License-Identifier: MIT
// The registry client over TCP, against daemons whose answers are bytes: every procedure, bad manners, two remote
// machines at once, two threads at once.
#include "registry/connection.h"
#include "registry/operations.h"
#include "registry/regd_clnt.h"
#include "registry/unused_state.h"
#include "tests/support/host.h"
#include "tests/support/scripted_regd.h"
#include "tests/support/xdr_bytes.h"

#include "util/ktl_strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace {

// The identity that the tests take on: level 6, uid 1000, "ann", host id 0x0A0B0C0D.
const std::string identity = "00000006 000003e8 00000003 616e6e00 0a0b0c0d ";
constexpr char ok[] = "00000001 00000000";

constexpr char localAddress[] = "127.0.0.1"; // of this host's name
constexpr char firstMachine[] = "127.0.0.2";
constexpr char secondMachine[] = "127.0.0.3";

struct RegistryOverTcp : testing::Test {
    RegistryOverTcp() {
        tvRegistryCleanConnections(1);
        tvRegistryInitData();
        std::free(g_userData.name);
        g_userData = {tarvoVersion, 1000, _ktl_strdup("ann"), 0x0A0B0C0D};
        userDataSet = 1;
        TIMEOUT = {25, 0};
        RegisterRegistryDaemon();
    }
    ~RegistryOverTcp() override { tvRegistryCleanConnections(1); }
    RegistryOverTcp(const RegistryOverTcp &) = delete;
    RegistryOverTcp &operator=(const RegistryOverTcp &) = delete;
};

WireHandler Always(const char *hexResult) {
    return [=](const WireCall &) { return WireAnswer{Hex(hexResult)}; };
}

// Answers the first calls from a list and every later one with "ok".
WireHandler InTurn(std::vector<WireAnswer> answers) {
    return [answers, next = std::size_t{0}](const WireCall &) mutable {
        return next < answers.size() ? answers[next++] : WireAnswer{Hex(ok)};
    };
}

double SecondsFor(const std::function<void()> &action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// --- each procedure once -------------------------------------------------------------------------------------------

struct ProcedureCase {
    const char *name;
    std::uint32_t procedure;
    std::string argument; // after the identity
    const char *answer;
    std::function<void()> call; // makes the call and looks at every output
};

void OpenKeys() {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, "Soft", &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x42u);
}

void OpenKeysEx() {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Soft", 9, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x42u);
}

void CreateKeys() {
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyA(1, "New", &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x44u);
}

void CreateKeysEx() {
    char keyClass[] = "Cls";
    HKEY key = 0;
    DWORD disposition = 0;
    EXPECT_EQ(RegCreateKeyExA(1, "New", 0, keyClass, 1, KEY_ALL_ACCESS, nullptr, &key, &disposition), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x44u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
}

void EnumKeys() {
    char name[16] = "";
    EXPECT_EQ(RegEnumKeyA(1, 3, name, sizeof name), ERROR_NO_MORE_ITEMS);
    EXPECT_STREQ(name, "Alpha");
}

void EnumKeysEx() {
    char name[16] = "";
    char keyClass[16] = "";
    DWORD nameLength = 16;
    DWORD classLength = 8;
    FILETIME time = {};
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, &nameLength, nullptr, keyClass, &classLength, &time), ERROR_NO_MORE_ITEMS);
    EXPECT_STREQ(name, "Alpha");
    EXPECT_EQ(nameLength, 5u);
    EXPECT_STREQ(keyClass, "Cls");
    EXPECT_EQ(classLength, 3u);
    EXPECT_EQ(time.dwLowDateTime, 0x11111111u);
    EXPECT_EQ(time.dwHighDateTime, 0x22222222u);
}

void EnumValues() {
    char name[16] = "";
    DWORD nameLength = 16;
    DWORD type = 0;
    BYTE data[8] = {};
    DWORD size = 8;
    EXPECT_EQ(RegEnumValueA(1, 2, name, &nameLength, nullptr, &type, data, &size), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Val");
    EXPECT_EQ(nameLength, 3u);
    EXPECT_EQ(type, REG_BINARY);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(std::memcmp(data, "\1\2\3\4\5\0\0", 8), 0);
}

void GetSecurity() {
    BYTE descriptor[8] = {};
    DWORD size = 8;
    EXPECT_EQ(RegGetKeySecurity(1, 7, descriptor, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::memcmp(descriptor, "\1\0\4\x80", 4), 0);
}

void QueryInfo() {
    char keyClass[16] = "";
    DWORD classLength = 16;
    DWORD numbers[6] = {};
    FILETIME time = {};
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, &numbers[0], &numbers[1], &numbers[2], &numbers[3],
                               &numbers[4], &numbers[5], nullptr, &time),
              ERROR_SUCCESS);
    EXPECT_STREQ(keyClass, "Cls");
    EXPECT_EQ(classLength, 3u);
    EXPECT_THAT(numbers, testing::ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(time.dwHighDateTime, 0x22222222u);
}

void QueryValue() {
    char value[8] = "";
    LONG size = 8;
    EXPECT_EQ(RegQueryValueA(1, "Sub", value, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 3);
    EXPECT_STREQ(value, "ab");
}

void QueryValueEx() {
    BYTE data[8] = {};
    DWORD size = 8;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, data, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 99u);
    EXPECT_EQ(type, REG_MULTI_SZ);
}

void SetValueEx() {
    const BYTE data[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(RegSetValueExA(1, "Val", 0, REG_BINARY, data, 5), ERROR_ACCESS_DENIED);
}

// What RegNotifyChangeKeyValue would do if it called its procedure.
LONG Notify() {
    HKEY key = 1;
    int clientNum = 0;
    CLIENT *client = tvConnectRegistryDaemon(nullptr, &key, &clientNum);
    if (client == nullptr) return ERROR_REGISTRY_IO_FAILED;
    regd_REG_NOTIFY_CHANGE_KEY_VALUE argument = {g_userData, key, 1, 5, 0x44, -1};
    const regd_BASIC_RES *result = reg_notify_change_key_value_2(&argument, client);
    if (result != nullptr) return static_cast<LONG>(result->body.status);
    DropConnectionIfBroken(clientNum);
    return ERROR_REGISTRY_IO_FAILED;
}

void SaveKeys() {
    SECURITY_ATTRIBUTES attributes = {12, nullptr, TRUE};
    EXPECT_EQ(RegSaveKeyA(1, "/f", &attributes), ERROR_ACCESS_DENIED);
}

constexpr char denied[] = "00000001 00000005";
constexpr char opened[] = "00000001 00000000 00000042";
constexpr char created[] = "00000001 00000000 00000044 00000002";
constexpr char alpha[] = "00000001 00000103 00000005 416c7068 61000000 00000005 00000003 436c7300 00000003 "
                         "11111111 22222222";

const ProcedureCase procedureCases[] = {
    {"close", 1, "00012345", denied, [] { EXPECT_EQ(RegCloseKey(0x12345), ERROR_ACCESS_DENIED); }},
    {"create", 2, "00000001 00000003 4e657700 00000000", created, CreateKeys},
    {"create ex", 3, "00000001 00000003 4e657700 00000003 436c7300 00000001 00000000 00000000", created, CreateKeysEx},
    {"delete", 4, "00000001 00000003 4f6c6400", denied,
     [] { EXPECT_EQ(RegDeleteKeyA(1, "Old"), ERROR_ACCESS_DENIED); }},
    {"delete value", 5, "00000001 00000003 56616c00 00000000", denied,
     [] { EXPECT_EQ(RegDeleteValueA(1, "Val"), ERROR_ACCESS_DENIED); }},
    {"enum", 6, "00000001 00000003 00000010", alpha, EnumKeys},
    {"enum ex", 7, "00000001 00000003 00000010 00000008", alpha, EnumKeysEx},
    {"enum value", 8, "00000001 00000002 00000010 00000008",
     "00000001 00000000 00000003 56616c00 00000003 00000003 00000005 01020304 05000000 00000005", EnumValues},
    {"flush", 9, "80000003", denied, [] { EXPECT_EQ(RegFlushKey(HKEY_USERS), ERROR_ACCESS_DENIED); }},
    {"get security", 10, "00000001 00000007 00000008", "00000001 00000000 00000004 01000480 00000004", GetSecurity},
    {"load", 11, "80000003 00000003 532d3100 00000002 2f660000", denied,
     [] { EXPECT_EQ(RegLoadKeyA(HKEY_USERS, "S-1", "/f"), ERROR_ACCESS_DENIED); }},
    {"notify", 12, "00000001 00000001 00000005 00000044 ffffffff", denied,
     [] { EXPECT_EQ(Notify(), ERROR_ACCESS_DENIED); }},
    {"open", 13, "80000002 00000004 536f6674", opened, OpenKeys},
    {"open ex", 14, "80000002 00000004 536f6674 00000009 00000000", opened, OpenKeysEx},
    {"query info", 15, "00000001 00000010",
     "00000001 00000000 00000003 436c7300 00000003 00000000 00000001 00000002 00000003 00000004 00000005 00000006 "
     "00000007 11111111 22222222 00000000",
     QueryInfo},
    {"query value", 16, "00000001 00000003 53756200 00000008 00000000 00000000",
     "00000001 00000000 00000001 00000003 61620000 00000003", QueryValue},
    {"query value ex", 18, "00000001 00000003 56616c00 00000008 00000000 00000000",
     "00000001 000000ea 00000007 00000000 00000063", QueryValueEx},
    {"replace", 19, "00000001 00000001 53000000 00000004 2f6e6577 00000004 2f6f6c64", denied,
     [] { EXPECT_EQ(RegReplaceKeyA(1, "S", "/new", "/old"), ERROR_ACCESS_DENIED); }},
    {"restore", 20, "00000001 00000005 2f66696c 65000000 00000008", denied,
     [] { EXPECT_EQ(RegRestoreKeyA(1, "/file", 8), ERROR_ACCESS_DENIED); }},
    {"save", 21, "00000001 00000002 2f660000 0000000c 00000001", denied, SaveKeys},
    {"set security", 22, "00000001 00000000 00000000", denied,
     [] { EXPECT_EQ(RegSetKeySecurity(1, 7, nullptr), ERROR_ACCESS_DENIED); }},
    {"set value", 23, "00000001 00000003 53756200 00000001 00000005 68656c6c 6f000000 00000005 00000000", denied,
     [] { EXPECT_EQ(RegSetValueA(1, "Sub", REG_SZ, "hello", 0), ERROR_ACCESS_DENIED); }},
    {"set value ex", 24, "00000001 00000003 56616c00 00000003 00000005 01020304 05000000 00000005 00000000", denied,
     SetValueEx},
    {"unload", 25, "80000003 00000003 532d3100", denied,
     [] { EXPECT_EQ(RegUnLoadKeyA(HKEY_USERS, "S-1"), ERROR_ACCESS_DENIED); }},
};

// --- each procedure with every output that it has ------------------------------------------------------------------

struct Outputs {
    HKEY key = 7;
    char name[16] = "unset";
    char keyClass[16] = "unset";
    BYTE data[16] = {7, 7, 7, 7};
    DWORD words[6] = {7, 7, 7, 7, 7, 7};
    LONG size = 16;
    DWORD nameLength = 16;
    DWORD classLength = 16;
    DWORD dataBytes = 16;
    DWORD type = 7;
    FILETIME time = {7, 7};
};

const struct {
    const char *name;
    LONG (*ask)(Outputs &);
} everyCall[] = {
    {"close", [](Outputs &) { return RegCloseKey(1); }},
    {"create", [](Outputs &o) { return RegCreateKeyA(1, "a", &o.key); }},
    {"create ex", [](Outputs &o) { return RegCreateKeyExA(1, "a", 0, nullptr, 0, 0, nullptr, &o.key, &o.words[0]); }},
    {"delete", [](Outputs &) { return RegDeleteKeyA(1, "a"); }},
    {"delete value", [](Outputs &) { return RegDeleteValueA(1, "a"); }},
    {"enum", [](Outputs &o) { return RegEnumKeyA(1, 0, o.name, 16); }},
    {"enum ex",
     [](Outputs &o) {
         return RegEnumKeyExA(1, 0, o.name, &o.nameLength, nullptr, o.keyClass, &o.classLength, &o.time);
     }},
    {"enum value",
     [](Outputs &o) { return RegEnumValueA(1, 0, o.name, &o.nameLength, nullptr, &o.type, o.data, &o.dataBytes); }},
    {"flush", [](Outputs &) { return RegFlushKey(1); }},
    {"get security", [](Outputs &o) { return RegGetKeySecurity(1, 7, o.data, &o.dataBytes); }},
    {"load", [](Outputs &) { return RegLoadKeyA(1, "a", "/f"); }},
    {"notify", [](Outputs &) { return Notify(); }},
    {"open", [](Outputs &o) { return RegOpenKeyA(1, "a", &o.key); }},
    {"open ex", [](Outputs &o) { return RegOpenKeyExA(1, "a", 0, 0, &o.key); }},
    {"query info",
     [](Outputs &o) {
         return RegQueryInfoKeyA(1, o.keyClass, &o.classLength, nullptr, &o.words[0], &o.words[1], &o.words[2],
                                 &o.words[3], &o.words[4], &o.words[5], nullptr, &o.time);
     }},
    {"query value", [](Outputs &o) { return RegQueryValueA(1, "a", o.name, &o.size); }},
    {"query value ex", [](Outputs &o) { return RegQueryValueExA(1, "a", nullptr, &o.type, o.data, &o.dataBytes); }},
    {"replace", [](Outputs &) { return RegReplaceKeyA(1, "a", "/n", "/o"); }},
    {"restore", [](Outputs &) { return RegRestoreKeyA(1, "/f", 0); }},
    {"save", [](Outputs &) { return RegSaveKeyA(1, "/f", nullptr); }},
    {"set security", [](Outputs &) { return RegSetKeySecurity(1, 7, nullptr); }},
    {"set value", [](Outputs &) { return RegSetValueA(1, "a", REG_SZ, "x", 0); }},
    {"set value ex", [](Outputs &o) { return RegSetValueExA(1, "a", 0, REG_BINARY, o.data, 4); }},
    {"unload", [](Outputs &) { return RegUnLoadKeyA(1, "a"); }},
};
static_assert(std::size(everyCall) == std::size(procedureCases));

// Makes each call; what failed must not have touched an output.
void ExpectOfEveryCall(LONG rc) {
    for (const auto &call : everyCall) {
        Outputs outputs;
        const Outputs before;
        EXPECT_EQ(call.ask(outputs), rc) << call.name;
        if (rc == ERROR_SUCCESS) continue;
        EXPECT_EQ(std::memcmp(&outputs, &before, sizeof before), 0) << call.name;
    }
}

} // namespace

TEST_F(RegistryOverTcp, every_procedure_sends_its_bytes_and_takes_every_field_of_its_reply) {
    for (const ProcedureCase &c : procedureCases) {
        SCOPED_TRACE(c.name);
        const ScriptedRegd daemon(localAddress, Always(c.answer));
        c.call();
        const std::vector<WireCall> calls = daemon.Calls();
        ASSERT_EQ(calls.size(), 3u); // handshake, ping, the call
        EXPECT_EQ(calls[0].procedure, 26u);
        EXPECT_EQ(InHex(calls[0].argument), InHex(Hex(identity)));
        EXPECT_EQ(calls[1].procedure, 27u);
        EXPECT_EQ(calls[2].procedure, c.procedure);
        EXPECT_EQ(InHex(calls[2].argument), InHex(Hex(identity + c.argument)));
        tvRegistryCleanConnections(1);
        tvRegistryInitData();
    }
    EXPECT_EQ(std::size(procedureCases) + 2, 26u);
}

TEST_F(RegistryOverTcp, a_reply_without_a_body_is_status_0) {
    for (const char *discriminant : {"00000000", "00000007"}) {
        const ScriptedRegd daemon(localAddress, Always(discriminant));
        HKEY key = 7;
        EXPECT_EQ(RegOpenKeyExA(1, "a", 0, 0, &key), ERROR_SUCCESS);
        EXPECT_EQ(key, 0u);
        ExpectOfEveryCall(ERROR_SUCCESS);
        tvRegistryCleanConnections(1);
        tvRegistryInitData();
    }
}

TEST_F(RegistryOverTcp, an_undecodable_reply_is_1016_and_the_connection_goes_on) {
    const ScriptedRegd daemon(localAddress, InTurn({{Hex("")},
                                                    {Hex("00000001")},
                                                    {Hex("00000001 00000000 ffffffff 6162")},
                                                    {Hex("00000001 00000000 00000005 416c7068 61000000 00000005")}}));
    char name[16] = "unset";
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(RegEnumKeyA(1, 0, name, sizeof name), ERROR_REGISTRY_IO_FAILED) << i;
    }
    EXPECT_STREQ(name, "unset");
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(daemon.Connections(), 1);
}

TEST_F(RegistryOverTcp, no_call_takes_a_body_that_ends_at_once) {
    const ScriptedRegd daemon(localAddress, Always("00000001"));
    ExpectOfEveryCall(ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(daemon.Connections(), 1);
}

TEST_F(RegistryOverTcp, every_call_whose_connection_closes_in_mid_reply_is_1016) {
    const ScriptedRegd daemon(localAddress, [](const WireCall &) { return WireAnswer{Hex(opened), 30}; });
    ExpectOfEveryCall(ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(daemon.Connections(), static_cast<int>(std::size(everyCall)));
}

TEST_F(RegistryOverTcp, a_connection_closed_at_any_byte_of_a_reply_is_1016_and_the_next_call_connects_anew) {
    const std::size_t recordBytes = 4 + 24 + 12;
    std::size_t cut = 0;
    bool whole = false;
    const ScriptedRegd daemon(localAddress, [&](const WireCall &) {
        return WireAnswer{Hex(opened), whole ? wholeReply : cut};
    });
    for (cut = 0; cut < recordBytes; ++cut) {
        whole = false;
        HKEY key = 7;
        EXPECT_EQ(RegOpenKeyExA(1, "a", 0, 0, &key), ERROR_REGISTRY_IO_FAILED) << cut;
        EXPECT_EQ(key, 7u);
        whole = true;
        EXPECT_EQ(RegOpenKeyExA(1, "a", 0, 0, &key), ERROR_SUCCESS) << cut;
        EXPECT_EQ(key, 0x42u);
    }
    EXPECT_EQ(daemon.Connections(), static_cast<int>(recordBytes) + 1);
    EXPECT_EQ(numConnections, 1);
}

TEST_F(RegistryOverTcp, a_daemon_that_was_restarted_is_found_again_by_the_second_call) {
    auto daemon = std::make_unique<ScriptedRegd>(localAddress, Always(ok));
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    daemon.reset();
    daemon = std::make_unique<ScriptedRegd>(localAddress, Always(ok));
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(daemon->Calls().size(), 3u); // handshake and ping again
    daemon.reset();
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
}

TEST_F(RegistryOverTcp, no_daemon_is_1016_in_no_time) {
    EXPECT_LT(SecondsFor([] { EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED); }), 1.0); // nobody at the port
    ExpectOfEveryCall(ERROR_REGISTRY_IO_FAILED);
    UnregisterRegistryDaemon();
    EXPECT_LT(SecondsFor([] { EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED); }), 1.0); // nobody registered
    EXPECT_EQ(connectFailMsg, 1);
    EXPECT_EQ(clntArray, nullptr);
}

TEST_F(RegistryOverTcp, an_answer_that_comes_after_its_time_out_is_not_taken_for_the_next_one) {
    WireAnswer late{Hex("00000001 00000005")};
    late.late = true;
    const ScriptedRegd daemon(localAddress, InTurn({{Hex(ok)}, late}));
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    TIMEOUT = {0, 200000}; // the second attempt has 25.2 s
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(TIMEOUT.tv_sec, 25);
    EXPECT_EQ(daemon.Connections(), 1);
}

TEST_F(RegistryOverTcp, an_answer_to_another_question_ends_the_connection_with_the_time_out) {
    WireAnswer wrong{Hex("00000001 00000005")};
    wrong.xidOffset = 1;
    const ScriptedRegd daemon(localAddress, InTurn({{Hex(ok)}, wrong}));
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    TIMEOUT = {0, 200000};
    EXPECT_EQ(RegFlushKey(1), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(TIMEOUT.tv_sec, 0); // not a time-out: nothing grows
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    EXPECT_EQ(daemon.Connections(), 2);
}

namespace {

// An answer to a value query: binary data of so many bytes, a multiple of 4, all the same.
Bytes AnswerOf(std::uint32_t dataBytes, std::uint8_t byte) {
    const std::string size = Words({dataBytes});
    const std::string head = Words({1, 0, REG_BINARY}) + size;
    Bytes answer(head.begin(), head.end());
    answer.insert(answer.end(), dataBytes, byte);
    answer.insert(answer.end(), size.begin(), size.end());
    return answer;
}

// Reads a value into a buffer of exactly its size. Returns how many of its bytes are `byte`.
std::size_t ReadBack(DWORD bytes, char byte) {
    std::string data(bytes, '\0');
    DWORD size = bytes;
    EXPECT_EQ(RegQueryValueExA(1, "Big", nullptr, nullptr, reinterpret_cast<BYTE *>(data.data()), &size),
              ERROR_SUCCESS);
    EXPECT_EQ(size, bytes);
    return static_cast<std::size_t>(std::count(data.begin(), data.end(), byte));
}

} // namespace

TEST_F(RegistryOverTcp, a_megabyte_of_data_goes_both_ways) {
    constexpr DWORD megabyte = 1 << 20;
    const std::string data(megabyte, 'x');
    const ScriptedRegd daemon(localAddress, [&](const WireCall &call) {
        if (call.procedure == 24) return WireAnswer{Hex(call.argument.size() > megabyte ? ok : denied)};
        return WireAnswer{AnswerOf(megabyte, 'x')};
    });
    EXPECT_EQ(RegSetValueExA(1, "Big", 0, REG_BINARY, reinterpret_cast<const BYTE *>(data.data()), megabyte),
              ERROR_SUCCESS);
    EXPECT_EQ(ReadBack(megabyte, 'x'), megabyte);
}

// Symptom: a value of a hundred megabytes could be written, but reading it back cost the connection. Cause: a reply was
// allowed 64 MiB.
TEST_F(RegistryOverTcp, a_value_of_a_hundred_megabytes_is_read_back) {
    constexpr DWORD bytes = 100'000'000;
    const ScriptedRegd daemon(localAddress, [](const WireCall &) { return WireAnswer{AnswerOf(bytes, 'x')}; });
    EXPECT_EQ(ReadBack(bytes, 'x'), bytes);
    EXPECT_EQ(daemon.Connections(), 1);
}

// --- several machines ----------------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, two_machines_and_the_local_daemon_at_once_each_get_their_own_keys) {
    const ScriptedRegd local(localAddress, Always("00000001 00000000 00000010"));
    const ScriptedRegd one(firstMachine, Always("00000001 00000000 00000011"));
    const ScriptedRegd two(secondMachine, Always("00000001 00000000 00000012"));
    HKEY oneRoot = 0;
    HKEY twoRoot = 0;
    ASSERT_EQ(RegConnectRegistryA(firstMachine, HKEY_LOCAL_MACHINE, &oneRoot), ERROR_SUCCESS);
    ASSERT_EQ(RegConnectRegistryA(secondMachine, HKEY_LOCAL_MACHINE, &twoRoot), ERROR_SUCCESS);
    EXPECT_EQ(oneRoot, 0x80100002u);
    EXPECT_EQ(twoRoot, 0x80200002u);

    HKEY keys[3] = {};
    EXPECT_EQ(RegOpenKeyExA(twoRoot, "two", 0, 0, &keys[2]), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "local", 0, 0, &keys[0]), ERROR_SUCCESS);
    EXPECT_EQ(RegOpenKeyExA(oneRoot, "one", 0, 0, &keys[1]), ERROR_SUCCESS);
    EXPECT_THAT(keys, testing::ElementsAre(0x10u, 0x00100011u, 0x00200012u));
    for (const HKEY key : {keys[1], keys[0], keys[2]}) {
        EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    }
    const ScriptedRegd *const daemons[] = {&local, &one, &two};
    for (std::size_t i = 0; i < 3; ++i) {
        const std::vector<WireCall> calls = daemons[i]->Calls();
        ASSERT_GE(calls.size(), 3u);
        EXPECT_EQ(calls.back().procedure, 1u) << i;
        EXPECT_EQ(InHex(calls.back().argument), InHex(Hex(identity + "0000001" + std::to_string(i)))) << i;
        EXPECT_EQ(calls[calls.size() - 2].procedure, 14u) << i;
        EXPECT_EQ(daemons[i]->Connections(), 1) << i;
    }
}

TEST_F(RegistryOverTcp, one_machine_may_go_away_and_come_back_without_the_other_noticing) {
    const ScriptedRegd local(localAddress, Always(ok));
    auto one = std::make_unique<ScriptedRegd>(firstMachine, Always(ok));
    const ScriptedRegd two(secondMachine, Always(ok));
    HKEY oneRoot = 0;
    HKEY twoRoot = 0;
    ASSERT_EQ(RegConnectRegistryA(firstMachine, HKEY_USERS, &oneRoot), ERROR_SUCCESS);
    ASSERT_EQ(RegConnectRegistryA(secondMachine, HKEY_USERS, &twoRoot), ERROR_SUCCESS);
    one.reset();
    EXPECT_EQ(RegFlushKey(oneRoot), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegFlushKey(oneRoot), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegFlushKey(twoRoot), ERROR_SUCCESS);
    one = std::make_unique<ScriptedRegd>(firstMachine, Always(ok));
    EXPECT_EQ(RegFlushKey(oneRoot), ERROR_SUCCESS);
    EXPECT_EQ(one->Calls().size(), 2u); // handshake and the call; the ping goes to the local daemon
    EXPECT_EQ(two.Connections(), 1);
}

TEST_F(RegistryOverTcp, this_hosts_own_name_is_the_local_daemon) {
    const ScriptedRegd local(localAddress, Always(ok));
    HKEY key = 0;
    EXPECT_EQ(RegConnectRegistryA(HostName().c_str(), HKEY_USERS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, HKEY_USERS);
    EXPECT_EQ(RegConnectRegistryA("no-such-host", HKEY_USERS, &key), ERROR_REGISTRY_IO_FAILED);
}

TEST_F(RegistryOverTcp, the_registry_host_of_the_environment_is_the_local_daemon) {
    const ScriptedRegd elsewhere(firstMachine, Always(ok));
    setenv("TARVO_REGISTRY_HOST", firstMachine, 1);
    EXPECT_EQ(RegFlushKey(1), ERROR_SUCCESS);
    unsetenv("TARVO_REGISTRY_HOST");
    EXPECT_EQ(elsewhere.Connections(), 1);
}

// --- several threads -----------------------------------------------------------------------------------------------

TEST_F(RegistryOverTcp, two_threads_make_ten_thousand_calls_each_and_every_answer_finds_its_caller) {
    // Opening a sub key named N gives a key of which only N and the caller can know.
    const ScriptedRegd daemon(localAddress, [](const WireCall &call) {
        if (call.procedure != REG_OPEN_KEY) return WireAnswer{Hex(ok)};
        Bytes answer = Hex("00000001 00000000");
        answer.insert(answer.end(), call.argument.end() - 4, call.argument.end());
        return WireAnswer{answer};
    });
    ASSERT_EQ(RegFlushKey(1), ERROR_SUCCESS); // the first call makes the mutex
    const auto manyCalls = [](char sign, int *wrong) {
        for (int i = 0; i < 10000; ++i) {
            const char name[] = {sign, static_cast<char>('a' + i % 26), static_cast<char>('a' + i / 26 % 26),
                                 static_cast<char>('a' + i / 676), '\0'};
            const HKEY expected = static_cast<HKEY>(name[0]) << 24 | static_cast<HKEY>(name[1]) << 16 |
                                  static_cast<HKEY>(name[2]) << 8 | static_cast<HKEY>(name[3]);
            HKEY key = 0;
            if (RegOpenKeyA(1, name, &key) != ERROR_SUCCESS || key != expected) ++*wrong;
        }
    };
    int wrong[2] = {};
    std::thread first(manyCalls, '\x01', &wrong[0]);
    std::thread second(manyCalls, '\x02', &wrong[1]);
    first.join();
    second.join();
    EXPECT_EQ(wrong[0], 0);
    EXPECT_EQ(wrong[1], 0);
    EXPECT_EQ(daemon.Connections(), 1);
    EXPECT_EQ(daemon.Calls().size(), 20003u);
}
