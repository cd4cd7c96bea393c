// SPDX-License-Identifier: MIT
// Hives, security and change notification: what each sends, byte for byte, and what it makes of the reply.
#include "tests/support/registry_fixture.h"

#include <cstring>

namespace {

using RegistryHives = RegistryTest;

constexpr char ok[] = "00000001 00000000";
constexpr char denied[] = "00000001 00000005";

// status 0, 20 bytes with zeros among them, size 20
constexpr char descriptor[] = "00000001 00000000 00000014 01000480 00000000 00000000 00000000 14000000 00000014";

} // namespace

TEST_F(RegistryHives, load_sends_sub_key_and_file) {
    daemon.Answer(ok);
    EXPECT_EQ(RegLoadKeyA(HKEY_USERS, "S-1", "/f"), ERROR_SUCCESS);
    ExpectOneCall(11, identity + "80000003 00000003 532d3100 00000002 2f660000");
}

TEST_F(RegistryHives, unload_sends_the_sub_key) {
    daemon.Answer(denied);
    EXPECT_EQ(RegUnLoadKeyA(HKEY_USERS, "S-1"), ERROR_ACCESS_DENIED);
    ExpectOneCall(25, identity + "80000003 00000003 532d3100");
}

TEST_F(RegistryHives, replace_sends_sub_key_new_file_and_old_file) {
    daemon.Answer(ok);
    EXPECT_EQ(RegReplaceKeyA(1, "S", "/new", "/old"), ERROR_SUCCESS);
    ExpectOneCall(19, identity + "00000001 00000001 53000000 00000004 2f6e6577 00000004 2f6f6c64");
}

TEST_F(RegistryHives, replace_without_a_file_answers_2) {
    EXPECT_EQ(RegReplaceKeyA(1, "S", "/new", nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegReplaceKeyA(1, "S", nullptr, "/old"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegReplaceKeyA(1, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    ExpectNoCall();
}

TEST_F(RegistryHives, restore_sends_file_and_flags) {
    daemon.Answer(ok);
    EXPECT_EQ(RegRestoreKeyA(1, "/file", 8), ERROR_SUCCESS);
    ExpectOneCall(20, identity + "00000001 00000005 2f66696c 65000000 00000008");
}

TEST_F(RegistryHives, save_sends_file_length_and_inherit_flag) {
    daemon.Answer(ok);
    SECURITY_ATTRIBUTES attributes = {12, &attributes, TRUE};
    EXPECT_EQ(RegSaveKeyA(1, "/f", &attributes), ERROR_SUCCESS);
    ExpectOneCall(21, identity + "00000001 00000002 2f660000 0000000c 00000001");
}

TEST_F(RegistryHives, save_without_attributes_sends_0_and_0) {
    daemon.Answer(ok);
    EXPECT_EQ(RegSaveKeyA(1, "/f", nullptr), ERROR_SUCCESS);
    ExpectOneCall(21, identity + "00000001 00000002 2f660000 00000000 00000000");
}

TEST_F(RegistryHives, save_without_a_file_answers_2) {
    EXPECT_EQ(RegSaveKeyA(1, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
    ExpectNoCall();
}

TEST_F(RegistryHives, a_missing_string_elsewhere_answers_87) {
    EXPECT_EQ(RegLoadKeyA(1, nullptr, "/f"), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegLoadKeyA(1, "S", nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegUnLoadKeyA(1, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegReplaceKeyA(1, nullptr, "/new", "/old"), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegRestoreKeyA(1, nullptr, 0), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryHives, get_security_sends_what_is_wanted_and_copies_a_descriptor_that_fits) {
    daemon.Answer(descriptor);
    Bytes buffer(24, 0xEE);
    DWORD size = 20;
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(InHex(buffer), "01000480 00000000 00000000 00000000 14000000 eeeeeeee");
    ExpectOneCall(10, identity + "00000001 00000007 00000014");
}

TEST_F(RegistryHives, get_security_with_16_of_20_bytes_copies_nothing_and_tells_20) {
    daemon.Answer(descriptor);
    Bytes buffer(20, 0xEE);
    DWORD size = 16;
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 20u);
    EXPECT_EQ(buffer, Bytes(20, 0xEE));
}

TEST_F(RegistryHives, get_security_copies_a_descriptor_whatever_the_status) {
    daemon.Answer("00000001 00000005 00000004 01000480 00000004");
    Bytes buffer(4, 0xEE);
    DWORD size = 4;
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), &size), ERROR_ACCESS_DENIED);
    EXPECT_EQ(InHex(buffer), "01000480");
}

TEST_F(RegistryHives, get_security_whose_reply_has_no_body_tells_a_size_of_0) {
    daemon.Answer("00000000");
    Bytes buffer(4, 0xEE);
    DWORD size = 4;
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(buffer, Bytes(4, 0xEE));
    EXPECT_EQ(size, 0u);
}

TEST_F(RegistryHives, get_security_stores_the_size_whatever_the_status) {
    daemon.Answer("00000001 0000007a 00000000 00000028");
    DWORD size = 0;
    EXPECT_EQ(RegGetKeySecurity(1, 7, nullptr, &size), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(size, 40u);
}

TEST_F(RegistryHives, get_security_without_a_size_sends_0_and_copies_nothing) {
    daemon.Answer(descriptor);
    Bytes buffer(20, 0xEE);
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), nullptr), ERROR_SUCCESS);
    EXPECT_EQ(buffer, Bytes(20, 0xEE));
    ExpectOneCall(10, identity + "00000001 00000007 00000000");
}

TEST_F(RegistryHives, get_security_never_reads_more_than_the_reply_holds) {
    daemon.Answer("00000001 00000000 00000002 01020000 00000014");
    Bytes buffer(20, 0xEE);
    DWORD size = 20;
    EXPECT_EQ(RegGetKeySecurity(1, 7, buffer.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(InHex(buffer), "0102eeee eeeeeeee eeeeeeee eeeeeeee eeeeeeee");
}

TEST_F(RegistryHives, set_security_sends_an_empty_descriptor_deliberate) {
    daemon.Answer(ok);
    char given[4] = {1, 2, 3, 4};
    EXPECT_EQ(RegSetKeySecurity(1, 7, given), ERROR_SUCCESS);
    ExpectOneCall(22, identity + "00000001 00000000 00000000");
}

TEST_F(RegistryHives, change_notification_is_1016_though_the_daemon_is_there_deliberate) {
    EXPECT_EQ(RegNotifyChangeKeyValue(1, TRUE, 1, nullptr, FALSE), ERROR_REGISTRY_IO_FAILED);
    ExpectNoCall();
}

TEST_F(RegistryHives, the_stub_of_change_notification_sends_its_whole_record) {
    daemon.Answer(ok);
    regd_REG_NOTIFY_CHANGE_KEY_VALUE argument = {g_userData, 0x80000002, 1, 5, 0x44, -1};
    EXPECT_NE(reg_notify_change_key_value_2(&argument, clntArray[0]->client), nullptr);
    ExpectOneCall(12, identity + "80000002 00000001 00000005 00000044 ffffffff");
}

TEST_F(RegistryHives, every_wide_form_answers_2_deliberate) {
    const WCHAR text[] = {'x', 0};
    EXPECT_EQ(RegLoadKeyW(1, text, text), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegUnLoadKeyW(1, text), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegReplaceKeyW(1, text, text, text), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegRestoreKeyW(1, text, 0), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegSaveKeyW(1, text, nullptr), ERROR_FILE_NOT_FOUND);
    ExpectNoCall();
}

TEST_F(RegistryHives, without_a_reply_all_of_them_are_1016) {
    DWORD size = 5;
    EXPECT_EQ(RegLoadKeyA(1, "S", "/f"), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegUnLoadKeyA(1, "S"), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegReplaceKeyA(1, "S", "/n", "/o"), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegRestoreKeyA(1, "/f", 0), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegSaveKeyA(1, "/f", nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RegGetKeySecurity(1, 0, nullptr, &size), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(RegSetKeySecurity(1, 0, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(daemon.calls.size(), 7u);
}
