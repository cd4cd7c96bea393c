// SPDX-License-Identifier: MIT
// Value operations: what each sends, byte for byte, and what it makes of each field of the reply.
#include "tests/support/allocations.h"
#include "tests/support/registry_fixture.h"

#include <algorithm>
#include <cstring>

namespace {

using RegistryValues = RegistryTest;

constexpr char ok[] = "00000001 00000000";

// status 0, type REG_BINARY, 8 bytes 01..08, size 8
constexpr char eightBytes[] = "00000001 00000000 00000003 00000008 01020304 05060708 00000008";

std::string ValueOfType(const char *type) {
    return std::string("00000001 00000000 ") + type + " 00000008 01020304 05060708 00000008";
}

// name "Val", type, 8 bytes 01..08, size 8
std::string EnumeratedOfType(const char *type) {
    return std::string("00000001 00000000 00000003 56616c00 00000003 ") + type + " 00000008 01020304 05060708 00000008";
}

// The first `count` of 01, 02, ..., then 0xEE up to `size`.
Bytes CountedThen(std::size_t count, std::size_t size, std::uint8_t rest = 0xEE) {
    Bytes bytes(size, rest);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    }
    return bytes;
}

} // namespace

// --- RegQueryValueA ------------------------------------------------------------------------------------------------

TEST_F(RegistryValues, query_sends_name_size_and_flags_and_copies_the_bytes) {
    daemon.Answer("00000001 00000000 00000001 00000003 61620000 00000003");
    char value[8] = "unset";
    LONG size = sizeof value;
    EXPECT_EQ(RegQueryValueA(1, "Sub", value, &size), ERROR_SUCCESS);
    EXPECT_EQ(std::string(value, 5), std::string("ab\0et", 5));
    EXPECT_EQ(size, 3);
    ExpectOneCall(16, identity + "00000001 00000003 53756200 00000008 00000000 00000000");
}

TEST_F(RegistryValues, query_without_name_and_buffer_sends_placeholder_and_both_flags) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        daemon.calls.clear();
        daemon.Answer("00000001 00000000 00000001 00000000 00000003");
        LONG size = 8;
        EXPECT_EQ(RegQueryValueA(1, name, nullptr, &size), ERROR_SUCCESS);
        EXPECT_EQ(size, 3);
        ExpectOneCall(16, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000008 00000001 00000001");
    }
}

TEST_F(RegistryValues, query_copies_at_most_the_size_whatever_the_status) {
    daemon.Answer("00000001 000000ea 00000003 00000008 01020304 05060708 00000008");
    Bytes value = CountedThen(0, 8);
    LONG size = 4;
    EXPECT_EQ(RegQueryValueA(1, "a", reinterpret_cast<char *>(value.data()), &size), ERROR_MORE_DATA);
    EXPECT_EQ(value, CountedThen(4, 8));
    EXPECT_EQ(size, 8);
}

TEST_F(RegistryValues, query_whose_reply_has_no_body_copies_nothing_and_tells_a_length_of_0) {
    daemon.Answer("00000000");
    Bytes value = CountedThen(0, 8);
    LONG size = 8;
    EXPECT_EQ(RegQueryValueA(1, "a", reinterpret_cast<char *>(value.data()), &size), ERROR_SUCCESS);
    EXPECT_EQ(value, CountedThen(0, 8));
    EXPECT_EQ(size, 0);
}

TEST_F(RegistryValues, query_copies_nothing_for_a_negative_size) {
    daemon.Answer(eightBytes);
    Bytes value = CountedThen(0, 8);
    LONG size = -1;
    EXPECT_EQ(RegQueryValueA(1, "a", reinterpret_cast<char *>(value.data()), &size), ERROR_SUCCESS);
    EXPECT_EQ(value, CountedThen(0, 8));
    EXPECT_EQ(size, 8);
}

TEST_F(RegistryValues, query_without_a_size_answers_87) {
    char value[8];
    EXPECT_EQ(RegQueryValueA(1, "a", value, nullptr), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, query_wide_hands_back_the_size_of_the_unnamed_value_and_no_data_deliberate) {
    daemon.Answer(eightBytes);
    WCHAR value[4] = {'u', 0};
    LONG size = 4;
    const WCHAR name[] = {'n', 0};
    EXPECT_EQ(RegQueryValueW(1, name, value, &size), ERROR_SUCCESS);
    EXPECT_EQ(value[0], 'u');
    EXPECT_EQ(size, 8);
    ExpectOneCall(16, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000008 00000001 00000000");
}

TEST_F(RegistryValues, query_wide_asks_for_twice_a_size_of_1) {
    daemon.Answer(eightBytes);
    WCHAR value[4] = {};
    LONG size = 1;
    EXPECT_EQ(RegQueryValueW(1, nullptr, value, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8);
    ExpectOneCall(16, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000002 00000001 00000000");
}

TEST_F(RegistryValues, query_wide_without_a_buffer_or_with_a_size_of_0_asks_with_size_0) {
    WCHAR value[4] = {};
    LONG size = 0;
    daemon.Answer(eightBytes);
    EXPECT_EQ(RegQueryValueW(1, nullptr, value, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8);
    daemon.Answer(eightBytes);
    EXPECT_EQ(RegQueryValueW(1, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8);
    daemon.Answer(eightBytes);
    EXPECT_EQ(RegQueryValueW(1, nullptr, value, nullptr), ERROR_SUCCESS);
    ASSERT_EQ(daemon.calls.size(), 3u);
    for (const RecordedCall &call : daemon.calls) {
        EXPECT_EQ(InHex(call.argument),
                  InHex(Hex(identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000000 00000001 00000001")));
    }
}

TEST_F(RegistryValues, query_wide_without_a_reply_hands_back_the_doubled_size) {
    daemon.Fail(RPC_SYSTEMERROR);
    WCHAR value[4] = {};
    LONG size = 4;
    EXPECT_EQ(RegQueryValueW(1, nullptr, value, &size), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(size, 8);
}

// --- RegQueryValueExA ----------------------------------------------------------------------------------------------

TEST_F(RegistryValues, query_ex_sends_name_size_and_flags_and_stores_type_data_and_length) {
    daemon.Answer(eightBytes);
    Bytes data = CountedThen(0, 12);
    DWORD size = 12;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_BINARY);
    EXPECT_EQ(size, 8u);
    Bytes expected = CountedThen(8, 12, 0); // the rest of the buffer is zeroed
    EXPECT_EQ(data, expected);
    ExpectOneCall(18, identity + "00000001 00000003 56616c00 0000000c 00000000 00000000");
}

TEST_F(RegistryValues, query_ex_without_data_sends_size_0_and_the_data_null_flag_and_returns_the_length) {
    daemon.Answer("00000001 00000000 00000001 00000000 00000008");
    DWORD size = 77;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(type, REG_SZ);
    ExpectOneCall(18, identity + "00000001 00000003 56616c00 00000000 00000000 00000001");
}

TEST_F(RegistryValues, query_ex_without_data_and_size_asks_for_the_type) {
    daemon.Answer("00000001 00000000 00000004 00000000 00000004");
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_DWORD);
    ExpectOneCall(18, identity + "00000001 00000003 56616c00 00000000 00000000 00000001");
}

TEST_F(RegistryValues, query_ex_without_a_name_sends_the_placeholder) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        daemon.calls.clear();
        daemon.Answer(eightBytes);
        DWORD size = 0;
        EXPECT_EQ(RegQueryValueExA(1, name, nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
        ExpectOneCall(18, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000000 00000001 00000001");
    }
}

TEST_F(RegistryValues, query_ex_cuts_a_longer_value_to_the_buffer_though_the_status_is_0_deliberate) {
    daemon.Answer(eightBytes);
    Bytes data = CountedThen(0, 8);
    DWORD size = 4;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, nullptr, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(4, 8));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, query_ex_copies_a_single_byte) {
    daemon.Answer("00000001 00000000 00000003 00000001 07000000 00000001");
    BYTE byte = 0;
    DWORD size = 1;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, nullptr, &byte, &size), ERROR_SUCCESS);
    EXPECT_EQ(byte, 7);
}

TEST_F(RegistryValues, query_ex_with_another_status_leaves_the_data_and_stores_length_and_type) {
    daemon.Answer("00000001 000000ea 00000003 00000004 01020304 00000008");
    Bytes data = CountedThen(0, 4);
    DWORD size = 4;
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, data.data(), &size), ERROR_MORE_DATA);
    EXPECT_EQ(data, CountedThen(0, 4));
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(type, REG_BINARY);
}

TEST_F(RegistryValues, query_ex_whose_reply_has_no_body_zeroes_everything) {
    daemon.Answer("00000000");
    Bytes data = CountedThen(0, 4);
    DWORD size = 4;
    DWORD type = 9;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(0, 4, 0));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(type, REG_NONE);
}

TEST_F(RegistryValues, query_ex_with_data_but_without_size_answers_87) {
    BYTE data[4];
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, nullptr, data, nullptr), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, query_ex_without_a_reply_leaves_everything_alone) {
    daemon.Fail(RPC_SYSTEMERROR);
    Bytes data = CountedThen(0, 4);
    DWORD size = 4;
    DWORD type = 9;
    EXPECT_EQ(RegQueryValueExA(1, "Val", nullptr, &type, data.data(), &size), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(data, CountedThen(0, 4));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(type, 9u);
}

TEST_F(RegistryValues, query_ex_wide_copies_what_is_no_string_deliberate) {
    for (const char *type : {"00000000", "00000003", "00000004", "00000005", "00000008"}) {
        daemon.Answer(ValueOfType(type));
        Bytes data = CountedThen(0, 8);
        DWORD size = 8;
        EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, nullptr, data.data(), &size), ERROR_SUCCESS) << type;
        EXPECT_EQ(data, CountedThen(8, 8)) << type;
        EXPECT_EQ(size, 8u) << type;
    }
    EXPECT_EQ(InHex(daemon.calls[0].argument),
              InHex(Hex(identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000010 00000001 00000000")));
}

TEST_F(RegistryValues, query_ex_wide_copies_no_strings_deliberate) {
    const WCHAR name[] = {'V', 0};
    for (const char *type : {"00000001", "00000002", "00000007"}) {
        daemon.Answer(ValueOfType(type));
        Bytes data = CountedThen(0, 8);
        DWORD size = 8;
        DWORD gotType = 0;
        EXPECT_EQ(RegQueryValueExW(1, name, nullptr, &gotType, data.data(), &size), ERROR_SUCCESS) << type;
        EXPECT_EQ(data, CountedThen(0, 8)) << type;
        EXPECT_EQ(size, 8u) << type;
        EXPECT_EQ(gotType, static_cast<DWORD>(type[7] - '0'));
    }
}

TEST_F(RegistryValues, query_ex_wide_never_writes_past_the_callers_size) {
    daemon.Answer(eightBytes);
    Bytes data = CountedThen(0, 8);
    DWORD size = 4;
    EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, nullptr, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(4, 8));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, query_ex_wide_without_a_size_asks_for_the_type_alone) {
    daemon.Answer("00000001 00000000 00000004 00000000 00000004");
    DWORD type = 0;
    EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_DWORD);
    ExpectOneCall(18, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000000 00000001 00000001");
}

TEST_F(RegistryValues, query_ex_wide_without_a_buffer_asks_for_data_and_drops_them) {
    daemon.Answer(eightBytes);
    DWORD size = 4;
    EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    ExpectOneCall(18, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000008 00000001 00000000");
}

TEST_F(RegistryValues, query_ex_wide_with_another_status_copies_nothing) {
    daemon.Answer("00000001 000000ea 00000003 00000004 01020304 00000008");
    Bytes data = CountedThen(0, 4);
    DWORD size = 4;
    EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, nullptr, data.data(), &size), ERROR_MORE_DATA);
    EXPECT_EQ(data, CountedThen(0, 4));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, query_ex_wide_without_a_reply_hands_back_the_doubled_size_and_the_type_that_was_there) {
    daemon.Fail(RPC_SYSTEMERROR);
    Bytes data = CountedThen(0, 4);
    DWORD size = 4;
    DWORD type = 9;
    EXPECT_EQ(RegQueryValueExW(1, nullptr, nullptr, &type, data.data(), &size), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(data, CountedThen(0, 4));
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(type, 9u);
}

// --- RegSetValueA --------------------------------------------------------------------------------------------------

TEST_F(RegistryValues, set_sends_the_string_with_its_own_length_when_none_is_given) {
    daemon.Answer(ok);
    EXPECT_EQ(RegSetValueA(1, "Sub", REG_SZ, "hello", 0), ERROR_SUCCESS);
    ExpectOneCall(23, identity + "00000001 00000003 53756200 00000001 00000005 68656c6c 6f000000 00000005 00000000");
}

TEST_F(RegistryValues, set_sends_the_given_length_beside_the_string) {
    daemon.Answer("00000001 00000005");
    EXPECT_EQ(RegSetValueA(1, nullptr, REG_SZ, "hello", 6), ERROR_ACCESS_DENIED);
    ExpectOneCall(23, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000001 00000005 68656c6c 6f000000 "
                                 "00000006 00000001");
}

TEST_F(RegistryValues, set_sends_no_more_of_the_string_than_the_given_length) {
    daemon.Answer(ok);
    EXPECT_EQ(RegSetValueA(1, "", REG_SZ, "hello", 2), ERROR_SUCCESS);
    ExpectOneCall(23, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000001 00000002 68650000 "
                                 "00000002 00000001");
}

TEST_F(RegistryValues, set_of_anything_but_a_string_answers_87_deliberate) {
    for (const DWORD type : {REG_NONE, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ}) {
        EXPECT_EQ(RegSetValueA(1, "Sub", type, "hello", 5), ERROR_INVALID_PARAMETER) << type;
    }
    EXPECT_EQ(RegSetValueA(1, "Sub", REG_SZ, nullptr, 5), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, set_wide_answers_87_deliberate) {
    const WCHAR text[] = {'x', 0};
    EXPECT_EQ(RegSetValueW(1, text, REG_SZ, text, 2), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

// --- RegSetValueExA ------------------------------------------------------------------------------------------------

TEST_F(RegistryValues, set_ex_sends_five_bytes_as_eight_on_the_wire) {
    daemon.Answer(ok);
    const BYTE data[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(RegSetValueExA(1, "Val", 9, REG_BINARY, data, 5), ERROR_SUCCESS);
    ExpectOneCall(24, identity + "00000001 00000003 56616c00 00000003 00000005 01020304 05000000 00000005 00000000");
}

TEST_F(RegistryValues, set_ex_of_no_bytes_sends_the_placeholder_of_eleven_with_size_0) {
    daemon.Answer(ok);
    const BYTE data[] = {1};
    EXPECT_EQ(RegSetValueExA(1, nullptr, 0, REG_SZ, data, 0), ERROR_SUCCESS);
    ExpectOneCall(24, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000001 0000000b 56616c75 6549734e "
                                 "756c6c00 00000000 00000001");
}

TEST_F(RegistryValues, set_ex_with_an_empty_name_sends_the_placeholder) {
    daemon.Answer("00000001 00000005");
    const BYTE data[] = {1, 2, 3, 4};
    EXPECT_EQ(RegSetValueExA(1, "", 0, REG_DWORD, data, 4), ERROR_ACCESS_DENIED);
    ExpectOneCall(24, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000004 00000004 01020304 00000004 "
                                 "00000001");
}

TEST_F(RegistryValues, set_ex_without_data_answers_87) {
    EXPECT_EQ(RegSetValueExA(1, "Val", 0, REG_SZ, nullptr, 0), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, set_ex_wide_refuses_strings_and_no_data_with_87_deliberate) {
    const BYTE data[] = {'x', 0};
    for (const DWORD type : {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ}) {
        EXPECT_EQ(RegSetValueExW(1, nullptr, 0, type, data, 2), ERROR_INVALID_PARAMETER) << type;
    }
    EXPECT_EQ(RegSetValueExW(1, nullptr, 0, REG_DWORD, nullptr, 4), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, set_ex_wide_writes_other_types_to_the_unnamed_value_deliberate) {
    daemon.Answer(ok);
    const WCHAR name[] = {'V', 0};
    const BYTE data[] = {1, 2, 3, 4};
    EXPECT_EQ(RegSetValueExW(1, name, 0, REG_DWORD, data, 4), ERROR_SUCCESS);
    ExpectOneCall(24, identity + "00000001 0000000c 5375624b 65794973 4e756c6c 00000004 00000004 01020304 00000004 "
                                 "00000001");
}

// --- RegEnumValueA -------------------------------------------------------------------------------------------------

TEST_F(RegistryValues, enum_sends_index_and_sizes_and_stores_name_type_and_data) {
    daemon.Answer(EnumeratedOfType("00000003"));
    char name[16] = "";
    DWORD nameLength = 16;
    DWORD type = 0;
    Bytes data = CountedThen(0, 12);
    DWORD size = 12;
    EXPECT_EQ(RegEnumValueA(1, 2, name, &nameLength, nullptr, &type, data.data(), &size), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Val");
    EXPECT_EQ(nameLength, 3u);
    EXPECT_EQ(type, REG_BINARY);
    EXPECT_EQ(data, CountedThen(8, 12));
    EXPECT_EQ(size, 8u);
    ExpectOneCall(8, identity + "00000001 00000002 00000010 0000000c");
}

TEST_F(RegistryValues, enum_without_sizes_sends_0_and_copies_no_data) {
    daemon.Answer(EnumeratedOfType("00000003"));
    char name[16] = "";
    Bytes data = CountedThen(0, 12);
    EXPECT_EQ(RegEnumValueA(1, 2, name, nullptr, nullptr, nullptr, data.data(), nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Val");
    EXPECT_EQ(data, CountedThen(0, 12));
    ExpectOneCall(8, identity + "00000001 00000002 00000000 00000000");
}

TEST_F(RegistryValues, enum_cuts_the_data_to_the_buffer_whatever_the_status) {
    daemon.Answer("00000001 000000ea 00000003 56616c00 00000003 00000003 00000008 01020304 05060708 00000008");
    char name[16] = "";
    Bytes data = CountedThen(0, 12);
    DWORD size = 4;
    EXPECT_EQ(RegEnumValueA(1, 2, name, nullptr, nullptr, nullptr, data.data(), &size), ERROR_MORE_DATA);
    EXPECT_EQ(data, CountedThen(4, 12));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, enum_leaves_the_name_alone_when_its_length_is_0) {
    daemon.Answer("00000001 00000103 00000001 41000000 00000000 00000001 00000000 00000000");
    char name[16] = "unset";
    DWORD nameLength = 16;
    EXPECT_EQ(RegEnumValueA(1, 2, name, &nameLength, nullptr, nullptr, nullptr, nullptr), ERROR_NO_MORE_ITEMS);
    EXPECT_STREQ(name, "unset");
    EXPECT_EQ(nameLength, 0u);
}

TEST_F(RegistryValues, enum_whose_reply_has_no_body_leaves_name_and_data_and_tells_lengths_and_type_0) {
    daemon.Answer("00000000");
    char name[16] = "unset";
    DWORD nameLength = 16;
    DWORD type = 9;
    Bytes data = CountedThen(0, 8);
    DWORD size = 8;
    EXPECT_EQ(RegEnumValueA(1, 2, name, &nameLength, nullptr, &type, data.data(), &size), ERROR_SUCCESS);
    EXPECT_STREQ(name, "unset");
    EXPECT_EQ(data, CountedThen(0, 8));
    EXPECT_EQ(nameLength, 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(type, REG_NONE);
}

TEST_F(RegistryValues, enum_copies_a_name_longer_than_the_count_whole_deliberate) {
    daemon.Answer(EnumeratedOfType("00000003"));
    char name[16] = "unset";
    DWORD nameLength = 1;
    EXPECT_EQ(RegEnumValueA(1, 2, name, &nameLength, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_STREQ(name, "Val");
}

TEST_F(RegistryValues, enum_never_reads_more_data_than_the_reply_holds) {
    daemon.Answer("00000001 00000000 00000003 56616c00 00000003 00000003 00000002 01020000 7fffffff");
    char name[16] = "";
    Bytes data = CountedThen(0, 5000);
    DWORD size = 5000;
    EXPECT_EQ(RegEnumValueA(1, 2, name, nullptr, nullptr, nullptr, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(2, 5000));
    EXPECT_EQ(size, 0x7FFFFFFFu);
}

TEST_F(RegistryValues, enum_without_a_name_buffer_answers_87) {
    DWORD size = 4;
    BYTE data[4];
    EXPECT_EQ(RegEnumValueA(1, 2, nullptr, &size, nullptr, nullptr, data, &size), ERROR_INVALID_PARAMETER);
    WCHAR name[4] = {};
    EXPECT_EQ(RegEnumValueW(1, 2, nullptr, &size, nullptr, nullptr, data, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegEnumValueW(1, 2, name, nullptr, nullptr, nullptr, data, &size), ERROR_INVALID_PARAMETER);
    ExpectNoCall();
}

TEST_F(RegistryValues, enum_wide_doubles_the_counts_and_copies_data_but_no_name_deliberate) {
    daemon.Answer(EnumeratedOfType("00000002"));
    WCHAR name[16] = {'u', 0};
    DWORD nameLength = 16;
    DWORD type = 0;
    Bytes data = CountedThen(0, 12);
    DWORD size = 12;
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, &type, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(name[0], 'u');
    EXPECT_EQ(nameLength, 3u);
    EXPECT_EQ(type, REG_EXPAND_SZ);
    EXPECT_EQ(data, CountedThen(8, 12));
    EXPECT_EQ(size, 8u);
    ExpectOneCall(8, identity + "00000001 00000002 00000020 00000018");
}

TEST_F(RegistryValues, enum_wide_without_a_name_answers_87_with_the_size_doubled_deliberate) {
    WCHAR name[4] = {};
    DWORD nameLength = 4;
    BYTE data[4];
    DWORD size = 4;
    EXPECT_EQ(RegEnumValueW(1, 2, nullptr, &nameLength, nullptr, nullptr, data, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(nameLength, 4u);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(RegEnumValueW(1, 2, name, nullptr, nullptr, nullptr, data, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(size, 16u);
    ExpectNoCall();
}

TEST_F(RegistryValues, enum_wide_copies_no_plain_string_deliberate) {
    daemon.Answer(EnumeratedOfType("00000001"));
    WCHAR name[16] = {};
    DWORD nameLength = 16;
    Bytes data = CountedThen(0, 12);
    DWORD size = 12;
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, nullptr, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(0, 12));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, enum_wide_never_writes_past_the_callers_size) {
    daemon.Answer(EnumeratedOfType("00000003"));
    WCHAR name[16] = {};
    DWORD nameLength = 16;
    Bytes data = CountedThen(0, 12);
    DWORD size = 4;
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, nullptr, data.data(), &size), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(4, 12));
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, enum_wide_without_a_buffer_or_without_its_size_copies_nothing_and_doubles_no_size) {
    WCHAR name[16] = {};
    DWORD nameLength = 16;
    DWORD size = 12;
    daemon.Answer(EnumeratedOfType("00000003"));
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, nullptr, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    ExpectOneCall(8, identity + "00000001 00000002 00000020 0000000c");

    daemon.calls.clear();
    daemon.Answer(EnumeratedOfType("00000003"));
    nameLength = 16;
    Bytes data = CountedThen(0, 12);
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, nullptr, data.data(), nullptr), ERROR_SUCCESS);
    EXPECT_EQ(data, CountedThen(0, 12));
    ExpectOneCall(8, identity + "00000001 00000002 00000020 00000000");
}

TEST_F(RegistryValues, enum_wide_without_a_reply_leaves_the_type_and_doubled_counts) {
    daemon.Fail(RPC_SYSTEMERROR);
    WCHAR name[16] = {};
    DWORD nameLength = 16;
    DWORD type = 9;
    BYTE data[4];
    DWORD size = 4;
    EXPECT_EQ(RegEnumValueW(1, 2, name, &nameLength, nullptr, &type, data, &size), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(nameLength, 32u);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(type, 9u);
}

// --- RegDeleteValueA -----------------------------------------------------------------------------------------------

TEST_F(RegistryValues, delete_sends_the_name_even_an_empty_one) {
    daemon.Answer(ok);
    EXPECT_EQ(RegDeleteValueA(1, "Val"), ERROR_SUCCESS);
    ExpectOneCall(5, identity + "00000001 00000003 56616c00 00000000");

    daemon.calls.clear();
    daemon.Answer("00000001 00000002");
    EXPECT_EQ(RegDeleteValueA(1, ""), ERROR_FILE_NOT_FOUND);
    ExpectOneCall(5, identity + "00000001 00000000 00000000");
}

TEST_F(RegistryValues, delete_without_a_name_sends_its_own_placeholder_deliberate) {
    daemon.Answer(ok);
    EXPECT_EQ(RegDeleteValueA(1, nullptr), ERROR_SUCCESS);
    ExpectOneCall(5, identity + "00000001 0000000b 76616c75 6549734e 756c6c00 00000001");
}

TEST_F(RegistryValues, delete_wide_deletes_the_unnamed_value_deliberate) {
    daemon.Answer(ok);
    const WCHAR name[] = {'V', 0};
    EXPECT_EQ(RegDeleteValueW(1, name), ERROR_SUCCESS);
    ExpectOneCall(5, identity + "00000001 0000000b 76616c75 6549734e 756c6c00 00000001");
}

TEST_F(RegistryValues, delete_without_a_reply_is_1016) {
    daemon.Fail(RPC_SYSTEMERROR);
    EXPECT_EQ(RegDeleteValueA(1, "Val"), ERROR_REGISTRY_IO_FAILED);
}

// --- RegQueryMultipleValuesA ---------------------------------------------------------------------------------------

TEST_F(RegistryValues, query_multiple_asks_for_each_value_and_packs_the_data) {
    daemon.Answer("00000001 00000000 00000001 00000002 61000000 00000002"); // "a" and its terminator
    daemon.Answer(eightBytes);
    char first[] = "One";
    char second[] = "Two";
    VALENTA entries[2] = {{first, 0, 0, 0}, {second, 0, 0, 0}};
    Bytes buffer = CountedThen(0, 16);
    char *const start = reinterpret_cast<char *>(buffer.data());
    DWORD size = 16;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 2, start, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(entries[0].ve_type, REG_SZ);
    EXPECT_EQ(entries[0].ve_valuelen, 2u);
    EXPECT_EQ(entries[0].ve_valueptr, reinterpret_cast<DWORD_PTR>(start));
    EXPECT_EQ(entries[1].ve_type, REG_BINARY);
    EXPECT_EQ(entries[1].ve_valuelen, 8u);
    EXPECT_EQ(entries[1].ve_valueptr, reinterpret_cast<DWORD_PTR>(start + 2));
    EXPECT_EQ(InHex(buffer), "61000102 03040506 0708eeee eeeeeeee");
    ASSERT_EQ(daemon.calls.size(), 2u);
    EXPECT_EQ(daemon.calls[0].procedure, 18u);
    EXPECT_EQ(InHex(daemon.calls[0].argument),
              InHex(Hex(identity + "00000001 00000003 4f6e6500 00000010 00000000 00000000")));
    EXPECT_EQ(InHex(daemon.calls[1].argument),
              InHex(Hex(identity + "00000001 00000003 54776f00 00000010 00000000 00000000")));
}

TEST_F(RegistryValues, query_multiple_refuses_a_value_that_fills_the_buffer_exactly_deliberate) {
    daemon.Answer(eightBytes);
    daemon.Answer(eightBytes);
    char name[] = "One";
    VALENTA entries[2] = {{name, 7, 7, 7}, {name, 7, 7, 7}};
    Bytes buffer = CountedThen(0, 16);
    DWORD size = 16;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 2, reinterpret_cast<char *>(buffer.data()), &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(entries[0].ve_valuelen, 8u);
    EXPECT_EQ(entries[1].ve_valuelen, 7u);
    EXPECT_EQ(entries[1].ve_valueptr, 7u);
    EXPECT_EQ(entries[1].ve_type, 7u);
    EXPECT_EQ(buffer, CountedThen(8, 16));
}

TEST_F(RegistryValues, query_multiple_forgets_an_earlier_234_when_a_later_value_fits_deliberate) {
    daemon.Answer(eightBytes);
    daemon.Answer("00000001 00000000 00000001 00000002 61000000 00000002");
    char name[] = "One";
    VALENTA entries[2] = {{name, 7, 7, 7}, {name, 7, 7, 7}};
    Bytes buffer = CountedThen(0, 8);
    DWORD size = 8;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 2, reinterpret_cast<char *>(buffer.data()), &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(entries[0].ve_valuelen, 7u);
    EXPECT_EQ(entries[1].ve_valueptr, reinterpret_cast<DWORD_PTR>(buffer.data()));
}

TEST_F(RegistryValues, query_multiple_of_a_value_longer_than_the_buffer_answers_234) {
    daemon.Answer(eightBytes); // says 8, though 4 were asked for
    char name[] = "One";
    VALENTA entry = {name, 7, 7, 7};
    char buffer[4];
    DWORD size = 4;
    EXPECT_EQ(RegQueryMultipleValuesA(1, &entry, 1, buffer, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(entry.ve_valuelen, 7u);
}

TEST_F(RegistryValues, query_multiple_ends_with_the_first_status_that_is_not_0) {
    daemon.Answer("00000001 00000000 00000001 00000002 61000000 00000002");
    daemon.Answer("00000001 00000002 00000000 00000000 00000000");
    char name[] = "One";
    VALENTA entries[3] = {{name, 7, 7, 7}, {name, 7, 7, 7}, {name, 7, 7, 7}};
    char buffer[16];
    DWORD size = 16;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 3, buffer, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(daemon.calls.size(), 2u);
    EXPECT_EQ(entries[0].ve_valuelen, 2u);
    EXPECT_EQ(entries[1].ve_valuelen, 7u);
    EXPECT_EQ(size, 16u);
}

TEST_F(RegistryValues, query_multiple_without_a_buffer_sums_up_the_sizes) {
    daemon.Answer(eightBytes);
    daemon.Answer("00000001 00000000 00000001 00000002 61000000 00000002");
    char name[] = "One";
    VALENTA entries[2] = {{name, 0, 0, 0}, {name, 0, 0, 0}};
    DWORD size = 0;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 2, nullptr, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 10u);

    daemon.Answer(eightBytes);
    size = 100;
    EXPECT_EQ(RegQueryMultipleValuesA(1, entries, 1, nullptr, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8u);
}

TEST_F(RegistryValues, query_multiple_without_memory_answers_8) {
    char name[] = "One";
    VALENTA entry = {name, 7, 7, 7};
    char buffer[16];
    DWORD size = 16;
    StartCounting(1);
    const LONG rc = RegQueryMultipleValuesA(1, &entry, 1, buffer, &size);
    (void)StopCounting();
    EXPECT_EQ(rc, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(size, 16u);
    ExpectNoCall();
}

TEST_F(RegistryValues, query_multiple_of_no_values_succeeds_with_size_0) {
    VALENTA entry = {};
    DWORD size = 16;
    EXPECT_EQ(RegQueryMultipleValuesA(1, &entry, 0, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 0u);
    ExpectNoCall();
}

TEST_F(RegistryValues, query_multiple_without_list_or_size_answers_87_and_the_wide_form_2) {
    VALENTA entry = {};
    VALENTW wide = {};
    DWORD size = 16;
    EXPECT_EQ(RegQueryMultipleValuesA(1, nullptr, 1, nullptr, &size), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryMultipleValuesA(1, &entry, 1, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegQueryMultipleValuesW(1, &wide, 1, nullptr, &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(size, 16u);
    ExpectNoCall();
}
