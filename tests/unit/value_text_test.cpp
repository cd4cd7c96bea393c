// SPDX-License-Identifier: MIT
// Types and data of values as people and programs read and write them.
#include "tvreg/value_text.h"
#include "util/json_text.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace {

RegValue Value(std::uint32_t type, std::string data) {
    RegValue value;
    value.name = "n";
    value.type = type;
    value.data = std::move(data);
    return value;
}

} // namespace

TEST(ParseType, names_in_any_case_short_names_and_numbers) {
    EXPECT_EQ(ParseType("REG_SZ"), REG_SZ);
    EXPECT_EQ(ParseType("reg_multi_sz"), REG_MULTI_SZ);
    EXPECT_EQ(ParseType("dword"), REG_DWORD);
    EXPECT_EQ(ParseType("multi"), REG_MULTI_SZ);
    EXPECT_EQ(ParseType("Expand"), REG_EXPAND_SZ);
    EXPECT_EQ(ParseType("none"), REG_NONE);
    EXPECT_EQ(ParseType("77"), 77u);
    EXPECT_EQ(ParseType("0x4d"), 77u);
    for (const char *wrong : {"", "REG_", "word", "-1", "4294967296", "0x"}) {
        EXPECT_EQ(ParseType(wrong), std::nullopt) << wrong;
    }
}

TEST(ParseData, words_of_each_type) {
    EXPECT_EQ(ParseData(REG_SZ, {"a b"}), std::string("a b\0", 4));
    EXPECT_EQ(ParseData(REG_SZ, {}), std::string("\0", 1));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a", "b"}), std::string("a\0b\0\0", 5));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {}), std::string("\0", 1));
    EXPECT_EQ(ParseData(REG_DWORD, {"16"}), std::string("\x10\0\0\0", 4));
    EXPECT_EQ(ParseData(REG_DWORD, {"0xFFFFFFFF"}), "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(ParseData(REG_BINARY, {"00ff", "1a,2b"}), std::string("\0\xFF\x1A\x2B", 4));
    EXPECT_EQ(ParseData(REG_NONE, {}), "");
}

TEST(ParseData, a_separator_cuts_words_into_strings) {
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a\\0b", "c"}, "\\0"), std::string("a\0b\0c\0\0", 7));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a\\0b\\0\\0"}, "\\0"), std::string("a\0b\0\0", 5));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a;b"}, ";"), std::string("a\0b\0\0", 5));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a\\0b"}), std::string("a\\0b\0\0", 6));
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a\\0\\0b"}, "\\0"), std::nullopt);
    EXPECT_EQ(ParseData(REG_SZ, {"a\\0b"}, "\\0"), std::string("a\\0b\0", 5));
}

TEST(ParseData, numbers_of_64_bits) {
    EXPECT_EQ(ParseData(REG_QWORD, {"0x123456789abcdef0"}), "\xF0\xDE\xBC\x9A\x78\x56\x34\x12");
    EXPECT_EQ(ParseData(REG_QWORD, {"18446744073709551616"}), std::nullopt);
    EXPECT_EQ(ParseType("qword"), REG_QWORD);
    EXPECT_EQ(TypeText(11), "REG_QWORD");
    EXPECT_EQ(TypeText(12), "12");
    EXPECT_EQ(DataText(Value(REG_QWORD, "\xF0\xDE\xBC\x9A\x78\x56\x34\x12")), "0x123456789abcdef0");
    EXPECT_EQ(DataText(Value(REG_QWORD, "\xF0")), "f0");
    EXPECT_EQ(ValueJson(Value(REG_QWORD, "\xF0\xDE\xBC\x9A\x78\x56\x34\x12"))["data"], 0x123456789abcdef0u);
}

TEST(ParseData, words_of_the_wrong_kind_give_nothing) {
    EXPECT_EQ(ParseData(REG_SZ, {"a", "b"}), std::nullopt);
    EXPECT_EQ(ParseData(REG_MULTI_SZ, {"a", ""}), std::nullopt);
    EXPECT_EQ(ParseData(REG_DWORD, {}), std::nullopt);
    EXPECT_EQ(ParseData(REG_DWORD, {"1x"}), std::nullopt);
    EXPECT_EQ(ParseData(REG_DWORD, {"4294967296"}), std::nullopt);
    EXPECT_EQ(ParseData(REG_BINARY, {"0"}), std::nullopt);
    EXPECT_EQ(ParseData(REG_BINARY, {"0g"}), std::nullopt);
}

TEST(DataText, each_type_on_one_line_without_control_characters) {
    EXPECT_EQ(DataText(Value(REG_SZ, std::string("a\x1B[m\0", 5))), "a\\x1b[m");
    EXPECT_EQ(DataText(Value(REG_SZ, "no end")), "no end");
    EXPECT_EQ(DataText(Value(REG_MULTI_SZ, std::string("a\0b\0\0", 5))), "a\\0b");
    EXPECT_EQ(DataText(Value(REG_MULTI_SZ, "unended")), "unended");
    EXPECT_EQ(DataText(Value(REG_DWORD, std::string("\x10\0\0\0", 4))), "0x10");
    EXPECT_EQ(DataText(Value(REG_DWORD, "\x10")), "10");
    EXPECT_EQ(DataText(Value(REG_BINARY, "\x01\xFF")), "01ff");
}

TEST(DataText, what_stands_in_a_string_is_told_from_what_stands_for_a_byte_or_an_end) {
    EXPECT_EQ(DataText(Value(REG_SZ, std::string("C:\\x\\0 \\x1b\0", 12))), "C:\\x\\0 \\x5cx1b");
    EXPECT_EQ(DataText(Value(REG_MULTI_SZ, std::string("a\\0b\0\\d\0\0", 9))), "a\\x5c0b\\0\\d");
}

TEST(ValueJson, each_kind_of_data) {
    EXPECT_EQ(ValueJson(Value(REG_DWORD, std::string("\x10\0\0\0", 4))).dump(),
              R"({"name":"n","type":"REG_DWORD","type_code":4,"data":16})");
    EXPECT_EQ(ValueJson(Value(REG_SZ, std::string("x\0", 2))).dump(),
              R"({"name":"n","type":"REG_SZ","type_code":1,"data":"x"})");
    EXPECT_EQ(ValueJson(Value(REG_MULTI_SZ, std::string("a\0b\0\0", 5))).dump(),
              R"({"name":"n","type":"REG_MULTI_SZ","type_code":7,"data":["a","b"]})");
    EXPECT_EQ(ValueJson(Value(77, "\x01")).dump(), R"({"name":"n","type":"77","type_code":77,"data":"01"})");
}

TEST(ValueJson, of_several_texts_each_is_there_as_base64_where_one_is_no_utf8) {
    const auto object = ValueJson(Value(REG_MULTI_SZ, std::string("a\0\xFF\0\0", 5)));
    EXPECT_EQ(object["data"].size(), 2u);
    EXPECT_EQ(object["data_bytes"].dump(), R"(["YQ==","/w=="])");
    EXPECT_FALSE(ValueJson(Value(REG_MULTI_SZ, std::string("a\0\0", 3))).contains("data_bytes"));
}

// JSON is looked at with terminals, too.
TEST(JsonText, is_ascii_and_keeps_what_it_can) {
    nlohmann::ordered_json object;
    SetText(object, "t", "\xC3\xBC\xC2\x9B\x7F\xE2\x80\xAE");
    SetText(object, "bad", "a\xFF");
    EXPECT_EQ(JsonText(object), "{\n  \"t\": \"\\u00fc\\u009b\\u007f\\u202e\",\n  \"bad\": \"a\\ufffd\",\n"
                                "  \"bad_bytes\": \"Yf8=\"\n}");
}

TEST(ValueJson, text_that_is_no_utf8_is_there_as_base64_too) {
    const auto object = ValueJson(Value(REG_SZ, "\xFF\xFE"));
    EXPECT_EQ(object["data_bytes"], "//4=");
    const auto longer = ValueJson(Value(REG_SZ, "\xFF\xFE\xFD\xFC"));
    EXPECT_EQ(longer["data_bytes"], "//79/A==");
    EXPECT_EQ(ValueJson(Value(REG_SZ, "\xFF\xFE\xFD"))["data_bytes"], "//79");
}
