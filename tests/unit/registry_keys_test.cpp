// SPDX-License-Identifier: MIT
// Key operations: what each sends, byte for byte, and what it makes of each field of the reply.
#include "tests/support/registry_fixture.h"

#include <cstring>

namespace {

using RegistryKeys = RegistryTest;

constexpr char ok[] = "00000001 00000000";
constexpr char notFound[] = "00000001 00000002";

// name "Alpha", class "Cls", last write 0x11111111 low, 0x22222222 high
const std::string alpha = "00000001 00000000 00000005 416c7068 61000000 00000005 00000003 436c7300 00000003 "
                          "11111111 22222222";

// class "classical!" (10), no reserved word, 1 sub key, 2, 3, 4 values, 5, 6, descriptor 7, time
std::string KeyInfo(const char *classIsNull) {
    return std::string("00000001 00000000 0000000a 636c6173 73696361 6c210000 0000000a 00000000 00000001 00000002 "
                       "00000003 00000004 00000005 00000006 00000007 11111111 22222222 ") +
           classIsNull;
}

} // namespace

// --- open ----------------------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, open_sends_the_sub_key_and_hands_back_the_key) {
    daemon.Answer("00000001 00000000 00000042");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, "Soft", &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x42u);
    ExpectOneCall(13, identity + "80000002 00000004 536f6674");
}

TEST_F(RegistryKeys, open_with_an_empty_sub_key_asks_the_daemon) {
    daemon.Answer("00000001 00000000 00000043");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyA(0x10, "", &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x43u);
    ExpectOneCall(13, identity + "00000010 00000000");
}

TEST_F(RegistryKeys, open_without_a_sub_key_is_the_given_key_unmasked_and_no_call) {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyA(0x00300007, nullptr, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x00300007u);
    ExpectNoCall();
}

TEST_F(RegistryKeys, open_wide_is_the_given_key_and_no_call_deliberate) {
    const WCHAR name[] = {'S', 0};
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyW(0x00300007, name, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x00300007u);
    EXPECT_EQ(RegOpenKeyW(1, name, nullptr), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryKeys, a_key_is_stored_whatever_the_status_says) {
    daemon.Answer("00000001 00000002 00000055");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyA(1, "a", &key), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key, 0x55u);
}

TEST_F(RegistryKeys, open_without_a_reply_leaves_the_key_alone) {
    daemon.Fail(RPC_SYSTEMERROR);
    HKEY key = 7;
    EXPECT_EQ(RegOpenKeyA(1, "a", &key), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(key, 7u);
}

TEST_F(RegistryKeys, open_whose_reply_has_no_body_succeeds_with_key_0) {
    daemon.Answer("00000000");
    HKEY key = 7;
    EXPECT_EQ(RegOpenKeyExA(1, "a", 0, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0u);
}

TEST_F(RegistryKeys, create_whose_reply_has_no_body_succeeds_with_key_and_disposition_0) {
    daemon.Answer("00000000");
    HKEY key = 7;
    DWORD disposition = 7;
    EXPECT_EQ(RegCreateKeyExA(1, "a", 0, nullptr, 0, 0, nullptr, &key, &disposition), ERROR_SUCCESS);
    EXPECT_EQ(key, 0u);
    EXPECT_EQ(disposition, 0u);
}

TEST_F(RegistryKeys, open_ex_sends_sub_key_options_and_flag_but_not_the_access) {
    daemon.Answer("00000001 00000000 00000042");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM", 0x99, KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x42u);
    ExpectOneCall(14, identity + "80000002 00000006 53595354 454d0000 00000099 00000000");
}

TEST_F(RegistryKeys, open_ex_without_a_sub_key_sends_the_placeholder) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        daemon.calls.clear();
        daemon.Answer("00000001 00000000 00000042");
        HKEY key = 0;
        EXPECT_EQ(RegOpenKeyExA(1, name, 0, 0, &key), ERROR_SUCCESS);
        ExpectOneCall(14, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000000 00000001");
    }
}

TEST_F(RegistryKeys, open_ex_wide_opens_the_key_itself_deliberate) {
    const WCHAR name[] = {'S', 0};
    daemon.Answer("00000001 00000000 00000042");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExW(1, name, 3, 0, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x42u);
    ExpectOneCall(14, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000003 00000001");
}

// --- create --------------------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, create_sends_the_sub_key_with_its_flag) {
    daemon.Answer("00000001 00000000 00000044 00000001");
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyA(1, "New", &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x44u);
    ExpectOneCall(2, identity + "00000001 00000003 4e657700 00000000");
}

TEST_F(RegistryKeys, create_without_a_sub_key_sends_the_placeholder) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        daemon.calls.clear();
        daemon.Answer("00000001 00000000 00000044 00000002");
        HKEY key = 0;
        EXPECT_EQ(RegCreateKeyA(1, name, &key), ERROR_SUCCESS);
        ExpectOneCall(2, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000001");
    }
}

TEST_F(RegistryKeys, create_wide_sends_the_placeholder_deliberate) {
    const WCHAR name[] = {'N', 0};
    daemon.Answer("00000001 00000000 00000044 00000002");
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyW(1, name, &key), ERROR_SUCCESS);
    ExpectOneCall(2, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000001");
}

TEST_F(RegistryKeys, create_ex_sends_sub_key_class_options_and_flags_and_nothing_else) {
    daemon.Answer("00000001 00000000 00000044 00000001");
    char keyClass[] = "Cls";
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, TRUE};
    HKEY key = 0;
    DWORD disposition = 0;
    EXPECT_EQ(
        RegCreateKeyExA(1, "New", 9, keyClass, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, &attributes, &key, &disposition),
        ERROR_SUCCESS);
    EXPECT_EQ(key, 0x44u);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    ExpectOneCall(3, identity + "00000001 00000003 4e657700 00000003 436c7300 00000001 00000000 00000000");
}

TEST_F(RegistryKeys, create_ex_sends_an_empty_class_as_it_is_and_a_missing_one_as_the_placeholder) {
    daemon.Answer("00000001 00000000 00000044 00000001");
    char empty[] = "";
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyExA(1, "New", 0, empty, 0, 0, nullptr, &key, nullptr), ERROR_SUCCESS);
    ExpectOneCall(3, identity + "00000001 00000003 4e657700 00000000 00000000 00000000 00000000");

    daemon.calls.clear();
    daemon.Answer("00000001 00000000 00000044 00000001");
    EXPECT_EQ(RegCreateKeyExA(1, "New", 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_SUCCESS);
    ExpectOneCall(3, identity +
                         "00000001 00000003 4e657700 0000000b 636c6173 7349734e 756c6c00 00000000 00000000 00000001");
}

TEST_F(RegistryKeys, create_ex_with_an_empty_sub_key_sends_the_placeholder_and_with_none_answers_87) {
    daemon.Answer("00000001 00000005 00000045 00000002");
    HKEY key = 0;
    DWORD disposition = 0;
    EXPECT_EQ(RegCreateKeyExA(1, "", 0, nullptr, 0, 0, nullptr, &key, &disposition), ERROR_ACCESS_DENIED);
    EXPECT_EQ(key, 0x45u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    ExpectOneCall(3, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 0000000b 636c6173 7349734e 756c6c00 "
                                "00000000 00000001 00000001");
    EXPECT_EQ(RegCreateKeyExA(1, nullptr, 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(daemon.calls.size(), 1u);
}

TEST_F(RegistryKeys, create_ex_wide_answers_87_deliberate) {
    const WCHAR name[] = {'N', 0};
    HKEY key = 0;
    EXPECT_EQ(RegCreateKeyExW(1, name, 0, nullptr, 0, 0, nullptr, &key, nullptr), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryKeys, a_missing_result_pointer_is_87_and_no_call) {
    EXPECT_EQ(RegOpenKeyA(1, "a", nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegOpenKeyA(1, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegOpenKeyExA(1, "a", 0, 0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegOpenKeyExW(1, nullptr, 0, 0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegCreateKeyA(1, "a", nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegCreateKeyW(1, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegCreateKeyExA(1, "a", 0, nullptr, 0, 0, nullptr, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

// --- close, flush, delete ------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, close_sends_the_key_and_returns_the_status) {
    daemon.Answer("00000001 00000006");
    EXPECT_EQ(RegCloseKey(0x12345), ERROR_INVALID_HANDLE);
    ExpectOneCall(1, identity + "00012345");
}

TEST_F(RegistryKeys, close_whose_reply_has_no_body_succeeds) {
    daemon.Answer("00000000");
    EXPECT_EQ(RegCloseKey(1), ERROR_SUCCESS);
}

TEST_F(RegistryKeys, flush_sends_the_key_and_returns_the_status) {
    daemon.Answer(notFound);
    EXPECT_EQ(RegFlushKey(0xF0000001), ERROR_FILE_NOT_FOUND);
    ExpectOneCall(9, identity + "f0000001");
}

TEST_F(RegistryKeys, delete_sends_the_sub_key_even_an_empty_one) {
    daemon.Answer(ok);
    EXPECT_EQ(RegDeleteKeyA(1, "Old"), ERROR_SUCCESS);
    ExpectOneCall(4, identity + "00000001 00000003 4f6c6400");

    daemon.calls.clear();
    daemon.Answer(notFound);
    EXPECT_EQ(RegDeleteKeyA(1, ""), ERROR_FILE_NOT_FOUND);
    ExpectOneCall(4, identity + "00000001 00000000");
}

TEST_F(RegistryKeys, delete_without_a_sub_key_and_delete_wide_answer_87) {
    const WCHAR name[] = {'O', 0};
    EXPECT_EQ(RegDeleteKeyA(1, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegDeleteKeyW(1, name), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

// --- enumerate -----------------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, enum_sends_index_and_size_and_copies_the_name) {
    daemon.Answer(alpha);
    char name[16] = "unset";
    EXPECT_EQ(RegEnumKeyA(1, 3, name, sizeof name), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Alpha");
    ExpectOneCall(6, identity + "00000001 00000003 00000010");
}

TEST_F(RegistryKeys, enum_copies_the_name_whatever_status_length_and_size_say_deliberate) {
    daemon.Answer("00000001 00000103 00000005 416c7068 61000000 00000000 00000000 00000000 00000000 00000000");
    char name[16] = "unset";
    EXPECT_EQ(RegEnumKeyA(1, 3, name, 2), ERROR_NO_MORE_ITEMS);
    EXPECT_STREQ(name, "Alpha");
}

TEST_F(RegistryKeys, enum_whose_reply_has_no_body_gives_an_empty_name) {
    daemon.Answer("00000000");
    char name[16] = "unset";
    EXPECT_EQ(RegEnumKeyA(1, 0, name, sizeof name), ERROR_SUCCESS);
    EXPECT_STREQ(name, "");
}

TEST_F(RegistryKeys, enum_without_a_buffer_answers_87) {
    EXPECT_EQ(RegEnumKeyA(1, 0, nullptr, 16), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegEnumKeyW(1, 0, nullptr, 16), ERROR_INVALID_PARAMETER);
    WCHAR name[4] = {};
    EXPECT_EQ(RegEnumKeyW(1, 0, name, 0), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryKeys, enum_wide_asks_for_twice_the_size_and_copies_nothing_deliberate) {
    daemon.Answer(alpha);
    WCHAR name[8] = {'u', 0};
    EXPECT_EQ(RegEnumKeyW(1, 3, name, 8), ERROR_SUCCESS);
    EXPECT_EQ(name[0], 'u');
    ExpectOneCall(6, identity + "00000001 00000003 00000010");
}

TEST_F(RegistryKeys, enum_ex_sends_index_and_sizes_and_stores_name_class_and_time) {
    daemon.Answer(alpha);
    char name[16] = "";
    char keyClass[16] = "";
    DWORD nameLength = 16;
    DWORD classLength = 8;
    FILETIME time = {};
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, &nameLength, nullptr, keyClass, &classLength, &time), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Alpha");
    EXPECT_EQ(nameLength, 5u);
    EXPECT_STREQ(keyClass, "Cls");
    EXPECT_EQ(classLength, 3u);
    EXPECT_EQ(time.dwLowDateTime, 0x11111111u);
    EXPECT_EQ(time.dwHighDateTime, 0x22222222u);
    ExpectOneCall(7, identity + "00000001 00000003 00000010 00000008");
}

TEST_F(RegistryKeys, enum_ex_without_counts_sends_sizes_of_0) {
    daemon.Answer(alpha);
    char name[16] = "";
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Alpha");
    ExpectOneCall(7, identity + "00000001 00000003 00000000 00000000");
}

TEST_F(RegistryKeys, enum_ex_stores_an_empty_name_when_its_length_is_0) {
    daemon.Answer("00000001 00000103 00000001 41000000 00000000 00000001 42000000 00000000 00000000 00000000");
    char name[16] = "unset";
    char keyClass[16] = "unset";
    DWORD nameLength = 16;
    DWORD classLength = 16;
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, &nameLength, nullptr, keyClass, &classLength, nullptr), ERROR_NO_MORE_ITEMS);
    EXPECT_STREQ(name, "");
    EXPECT_STREQ(keyClass, "");
    EXPECT_EQ(nameLength, 0u);
    EXPECT_EQ(classLength, 0u);
}

TEST_F(RegistryKeys, enum_ex_whose_reply_has_no_body_gives_empty_names_and_time_0) {
    daemon.Answer("00000000");
    char name[16] = "unset";
    char keyClass[16] = "unset";
    DWORD nameLength = 16;
    DWORD classLength = 16;
    FILETIME time = {1, 2};
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, &nameLength, nullptr, keyClass, &classLength, &time), ERROR_SUCCESS);
    EXPECT_STREQ(name, "");
    EXPECT_STREQ(keyClass, "");
    EXPECT_EQ(nameLength, 0u);
    EXPECT_EQ(classLength, 0u);
    EXPECT_EQ(time.dwLowDateTime, 0u);
    EXPECT_EQ(time.dwHighDateTime, 0u);
}

TEST_F(RegistryKeys, enum_ex_copies_a_name_longer_than_the_count_whole_deliberate) {
    daemon.Answer(alpha);
    char name[16] = "unset";
    DWORD nameLength = 2;
    EXPECT_EQ(RegEnumKeyExA(1, 3, name, &nameLength, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Alpha");
    EXPECT_EQ(nameLength, 5u);
}

TEST_F(RegistryKeys, enum_ex_with_nothing_to_fill_answers_87) {
    DWORD length = 4;
    EXPECT_EQ(RegEnumKeyExA(1, 0, nullptr, &length, nullptr, nullptr, &length, nullptr), ERROR_INVALID_PARAMETER);
    WCHAR wide[4] = {};
    EXPECT_EQ(RegEnumKeyExW(1, 0, wide, nullptr, nullptr, wide, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegEnumKeyExW(1, 0, nullptr, &length, nullptr, nullptr, &length, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(length, 4u);
    ExpectNoCall();
}

TEST_F(RegistryKeys, enum_ex_for_the_time_alone_is_asked) {
    daemon.Answer(alpha);
    FILETIME time = {};
    EXPECT_EQ(RegEnumKeyExA(1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, &time), ERROR_SUCCESS);
    EXPECT_EQ(time.dwLowDateTime, 0x11111111u);
}

TEST_F(RegistryKeys, enum_ex_wide_doubles_the_counts_and_copies_no_names_deliberate) {
    daemon.Answer(alpha);
    WCHAR name[16] = {'u', 0};
    WCHAR keyClass[16] = {'v', 0};
    DWORD nameLength = 16;
    DWORD classLength = 8;
    FILETIME time = {};
    EXPECT_EQ(RegEnumKeyExW(1, 3, name, &nameLength, nullptr, keyClass, &classLength, &time), ERROR_SUCCESS);
    EXPECT_EQ(name[0], 'u');
    EXPECT_EQ(keyClass[0], 'v');
    EXPECT_EQ(nameLength, 5u);
    EXPECT_EQ(classLength, 3u);
    EXPECT_EQ(time.dwHighDateTime, 0x22222222u);
    ExpectOneCall(7, identity + "00000001 00000003 00000020 00000010");
}

TEST_F(RegistryKeys, enum_ex_wide_without_a_reply_leaves_the_counts_doubled) {
    daemon.Fail(RPC_SYSTEMERROR);
    WCHAR name[16] = {'u', 0};
    DWORD nameLength = 16;
    EXPECT_EQ(RegEnumKeyExW(1, 3, name, &nameLength, nullptr, nullptr, nullptr, nullptr), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(nameLength, 32u);
}

TEST_F(RegistryKeys, enum_ex_wide_does_not_double_a_count_without_its_buffer) {
    daemon.Answer(alpha);
    WCHAR name[16] = {};
    DWORD nameLength = 16;
    DWORD classLength = 8;
    EXPECT_EQ(RegEnumKeyExW(1, 3, name, &nameLength, nullptr, nullptr, &classLength, nullptr), ERROR_SUCCESS);
    ExpectOneCall(7, identity + "00000001 00000003 00000020 00000008");
}

// --- query info ----------------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, query_info_stores_every_field_but_the_descriptor_size_deliberate) {
    daemon.Answer(KeyInfo("00000000"));
    char keyClass[16] = {};
    DWORD classLength = 16;
    DWORD subKeys = 0;
    DWORD maxSubKey = 0;
    DWORD maxClass = 0;
    DWORD values = 0;
    DWORD maxName = 0;
    DWORD maxValue = 0;
    DWORD descriptor = 99;
    FILETIME time = {};
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, &subKeys, &maxSubKey, &maxClass, &values, &maxName,
                               &maxValue, &descriptor, &time),
              ERROR_SUCCESS);
    EXPECT_EQ(std::string(keyClass), "classical!");
    EXPECT_EQ(classLength, 10u);
    EXPECT_EQ(subKeys, 1u);
    EXPECT_EQ(maxSubKey, 2u);
    EXPECT_EQ(maxClass, 3u);
    EXPECT_EQ(values, 4u);
    EXPECT_EQ(maxName, 5u);
    EXPECT_EQ(maxValue, 6u);
    EXPECT_EQ(descriptor, 99u);
    EXPECT_EQ(time.dwLowDateTime, 0x11111111u);
    EXPECT_EQ(time.dwHighDateTime, 0x22222222u);
    ExpectOneCall(15, identity + "00000001 00000010");
}

TEST_F(RegistryKeys, query_info_cuts_a_class_that_does_not_fit_and_answers_234) {
    daemon.Answer(KeyInfo("00000000"));
    char keyClass[] = "...............";
    DWORD classLength = 4;
    DWORD subKeys = 0;
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, &subKeys, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_MORE_DATA);
    EXPECT_EQ(std::string(keyClass), "clas...........");
    EXPECT_EQ(classLength, 10u);
    EXPECT_EQ(subKeys, 1u);
}

TEST_F(RegistryKeys, query_info_stores_the_fields_whatever_the_status_and_234_takes_its_place) {
    const std::string denied = "00000001 00000005" + KeyInfo("00000000").substr(std::strlen("00000001 00000000"));
    daemon.Answer(denied);
    DWORD classLength = 10;
    DWORD values = 0;
    EXPECT_EQ(RegQueryInfoKeyA(1, nullptr, &classLength, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_ACCESS_DENIED);
    EXPECT_EQ(values, 4u);

    daemon.Answer(denied);
    classLength = 9;
    EXPECT_EQ(RegQueryInfoKeyA(1, nullptr, &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_MORE_DATA);
    EXPECT_EQ(classLength, 10u);
}

TEST_F(RegistryKeys, query_info_copies_a_class_that_just_fits_without_a_terminator) {
    daemon.Answer(KeyInfo("00000000"));
    char keyClass[] = "...............";
    DWORD classLength = 10;
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_STREQ(keyClass, "classical!.....");
}

TEST_F(RegistryKeys, query_info_copies_no_class_when_the_reply_says_that_there_is_none) {
    daemon.Answer(KeyInfo("00000001"));
    char keyClass[] = "...............";
    DWORD classLength = 15;
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_STREQ(keyClass, "...............");
    EXPECT_EQ(classLength, 10u);
}

TEST_F(RegistryKeys, query_info_never_reads_more_class_than_the_reply_holds) {
    daemon.Answer("00000001 00000000 00000001 63000000 7fffffff 00000000 00000000 00000000 00000000 00000000 00000000 "
                  "00000000 00000000 00000000 00000000 00000000");
    std::string keyClass(5000, '.');
    DWORD classLength = 5000;
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass.data(), &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_MORE_DATA);
    EXPECT_EQ(classLength, 0x7FFFFFFFu);
    EXPECT_EQ(keyClass.substr(0, 4), std::string("c\0..", 4));
}

TEST_F(RegistryKeys, query_info_with_no_pointer_at_all_returns_the_status) {
    daemon.Answer(KeyInfo("00000000"));
    EXPECT_EQ(RegQueryInfoKeyA(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    ExpectOneCall(15, identity + "00000001 00000000");
}

TEST_F(RegistryKeys, query_info_whose_reply_has_no_body_is_all_zeros) {
    daemon.Answer("00000000");
    char keyClass[] = "unset";
    DWORD classLength = 6;
    DWORD subKeys = 9;
    EXPECT_EQ(RegQueryInfoKeyA(1, keyClass, &classLength, nullptr, &subKeys, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_STREQ(keyClass, "unset");
    EXPECT_EQ(classLength, 0u);
    EXPECT_EQ(subKeys, 0u);
}

TEST_F(RegistryKeys, query_info_wide_asks_for_twice_the_class_and_gives_a_length_of_0_deliberate) {
    daemon.Answer(KeyInfo("00000000"));
    WCHAR keyClass[8] = {'u', 0};
    DWORD classLength = 8;
    DWORD subKeys = 0;
    FILETIME time = {};
    EXPECT_EQ(RegQueryInfoKeyW(1, keyClass, &classLength, nullptr, &subKeys, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, &time),
              ERROR_SUCCESS);
    EXPECT_EQ(keyClass[0], 'u');
    EXPECT_EQ(classLength, 0u);
    EXPECT_EQ(subKeys, 1u);
    EXPECT_EQ(time.dwLowDateTime, 0x11111111u);
    ExpectOneCall(15, identity + "00000001 00000010");
}

TEST_F(RegistryKeys, query_info_wide_whose_class_does_not_fit_answers_234_and_keeps_the_length_deliberate) {
    daemon.Answer(KeyInfo("00000000"));
    WCHAR keyClass[8] = {};
    DWORD classLength = 4;
    EXPECT_EQ(RegQueryInfoKeyW(1, keyClass, &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_MORE_DATA);
    EXPECT_EQ(classLength, 4u);
    ExpectOneCall(15, identity + "00000001 00000008");
}

TEST_F(RegistryKeys, query_info_wide_without_a_class_length_is_the_narrow_call) {
    daemon.Answer(KeyInfo("00000000"));
    DWORD values = 0;
    EXPECT_EQ(RegQueryInfoKeyW(1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(values, 4u);
    ExpectOneCall(15, identity + "00000001 00000000");
}

TEST_F(RegistryKeys, query_info_wide_with_a_class_length_of_0_is_the_narrow_call) {
    daemon.Answer(KeyInfo("00000000"));
    WCHAR keyClass[8] = {};
    DWORD classLength = 0;
    EXPECT_EQ(RegQueryInfoKeyW(1, keyClass, &classLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr),
              ERROR_MORE_DATA);
    EXPECT_EQ(classLength, 10u);
    EXPECT_EQ(keyClass[0], 0);
    ExpectOneCall(15, identity + "00000001 00000000");
}

// --- connections ---------------------------------------------------------------------------------------------------

TEST_F(RegistryKeys, a_key_of_connection_2_carries_its_number_and_is_sent_without_it) {
    Script &other = NewScript();
    Script &second = NewScript();
    Connect(1, &other, "one");
    Connect(2, &second, "two");
    second.Answer("00000001 00000000 80000042");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(0x80200002, "a", 0, 0, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x80200042u);
    second.Answer(ok);
    EXPECT_EQ(RegCloseKey(key), ERROR_SUCCESS);
    ASSERT_EQ(second.calls.size(), 2u);
    EXPECT_EQ(InHex(second.calls[1].argument), InHex(Hex(identity + "80000042")));
    EXPECT_TRUE(other.calls.empty());
    ExpectNoCall();
}

TEST_F(RegistryKeys, the_connections_number_is_added_to_the_daemons_key_as_it_is) {
    Script &second = NewScript();
    Connect(2, &second, "two");
    second.Answer("00000001 00000000 00100042");
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(0x80200002, "a", 0, 0, &key), ERROR_SUCCESS);
    EXPECT_EQ(key, 0x00300042u);
}
