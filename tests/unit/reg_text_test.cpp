// SPDX-License-Identifier: MIT
// .reg text, read and written.
#include "tvreg/reg_text.h"

#include "tvreg/utf16.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

// A text with \n line ends and zero bytes where it says so.
template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
    return std::string(text, N - 1);
}

std::string Utf16(std::string_view text) {
    std::string bytes;
    EXPECT_TRUE(Utf16BytesFromUtf8(text, &bytes));
    return bytes;
}

std::vector<RegKey> Read(std::string_view text) {
    std::vector<RegKey> keys;
    for (const RegTextError &error : ReadRegText(text, &keys)) {
        ADD_FAILURE() << error.line << ": " << error.text;
    }
    return keys;
}

// The one value that a text of one key and one value line yields.
RegValue ReadOne(std::string_view line, std::string_view header = "REGEDIT4") {
    const auto keys = Read(std::string(header) + "\n[HKLM\\k]\n" + std::string(line) + "\n");
    if (keys.size() != 1 || keys[0].values.size() != 1) {
        ADD_FAILURE() << "not one value";
        return {};
    }
    return keys[0].values[0];
}

RegValue Value(std::string name, std::uint32_t type, std::string data) {
    RegValue value;
    value.name = std::move(name);
    value.type = type;
    value.data = std::move(data);
    return value;
}

constexpr std::string_view version5Heading = "Windows Registry Editor Version 5.00";

} // namespace

TEST(ReadRegText, one_value_of_every_kind) {
    EXPECT_EQ(ReadOne("\"n\"=\"text\""), Value("n", REG_SZ, Bytes("text\0")));
    EXPECT_EQ(ReadOne("@=\"\""), Value("", REG_SZ, Bytes("\0")));
    EXPECT_EQ(ReadOne("\"n\"=dword:0000002a"), Value("n", REG_DWORD, Bytes("\x2A\0\0\0")));
    EXPECT_EQ(ReadOne("\"n\"=dword:FFFFFFFE"), Value("n", REG_DWORD, Bytes("\xFE\xFF\xFF\xFF")));
    EXPECT_EQ(ReadOne("\"n\"=dword:7"), Value("n", REG_DWORD, Bytes("\7\0\0\0")));
    EXPECT_EQ(ReadOne("\"n\"=hex:00,Ff"), Value("n", REG_BINARY, Bytes("\0\xFF")));
    EXPECT_EQ(ReadOne("\"n\"=hex:"), Value("n", REG_BINARY, ""));
    EXPECT_EQ(ReadOne("\"n\"=hex(0):"), Value("n", REG_NONE, ""));
    EXPECT_EQ(ReadOne("\"n\"=hex(2):41,00"), Value("n", REG_EXPAND_SZ, Bytes("A\0")));
    EXPECT_EQ(ReadOne("\"n\"=hex(7):41,00,00"), Value("n", REG_MULTI_SZ, Bytes("A\0\0")));
    EXPECT_EQ(ReadOne("\"n\"=hex(b):01"), Value("n", 11, "\1"));
    EXPECT_EQ(ReadOne("\"n\"=hex(ffffffff):01"), Value("n", 0xFFFFFFFF, "\1"));
}

TEST(ReadRegText, minus_deletes_a_value_or_a_key) {
    EXPECT_TRUE(ReadOne("\"n\"=-").isDeleted);
    EXPECT_TRUE(ReadOne("@=-").isDeleted);
    const auto keys = Read("REGEDIT4\n[-HKLM\\gone]\n[HKLM\\stays]\n");
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_TRUE(keys[0].isDeleted);
    EXPECT_EQ(keys[0].key.path, "gone");
    EXPECT_FALSE(keys[1].isDeleted);
}

TEST(ReadRegText, quotes_and_backslashes_are_escaped_in_names_and_strings) {
    EXPECT_EQ(ReadOne(R"("a\"b\\c"="C:\\x \"y\"")"), Value("a\"b\\c", REG_SZ, Bytes("C:\\x \"y\"\0")));
}

TEST(ReadRegText, a_string_may_go_on_over_line_ends) {
    EXPECT_EQ(ReadOne("\"n\"=\"one\r\ntwo\""), Value("n", REG_SZ, Bytes("one\r\ntwo\0")));
}

TEST(ReadRegText, hexadecimal_data_goes_on_behind_a_backslash) {
    EXPECT_EQ(ReadOne("\"n\"=hex:01,\\\n  02,\\\r\n\t03"), Value("n", REG_BINARY, "\1\2\3"));
    EXPECT_EQ(ReadOne("\"n\"=hex:\\\n 01"), Value("n", REG_BINARY, "\1"));
}

TEST(ReadRegText, blanks_comments_and_empty_lines_are_passed_over) {
    const auto keys = Read("\r\n  REGEDIT4 \r\n; about\n\n [HKLM\\k] ; a key\n  \"n\" = dword:1 ; one\n\n;[HKLM\\no]\n"
                           "\"m\"=hex:01 ; two");
    ASSERT_EQ(keys.size(), 1u);
    ASSERT_EQ(keys[0].values.size(), 2u);
    EXPECT_EQ(keys[0].values[1].data, "\1");
}

TEST(ReadRegText, every_root_by_both_names) {
    const auto keys = Read("REGEDIT4\n[HKCR]\n[hkey_classes_root]\n[HKCU]\n[HKEY_CURRENT_USER]\n[HKLM]\n"
                           "[HKEY_LOCAL_MACHINE]\n[HKU]\n[HKEY_USERS]\n[HKPD]\n[HKEY_PERFORMANCE_DATA]\n[HKCC]\n"
                           "[HKEY_CURRENT_CONFIG]\n[HKDD]\n[HKEY_DYN_DATA]\n");
    ASSERT_EQ(keys.size(), 14u);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(keys[i].key.root, HKEY_CLASSES_ROOT + i / 2);
    }
}

TEST(ReadRegText, names_of_keys_may_hold_brackets_and_slashes) {
    const auto keys = Read("REGEDIT4\n[HKLM\\a]b/c[\\d]\n");
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(keys[0].key.path, "a]b/c[\\d");
}

TEST(ReadRegText, version_5_string_types_in_hexadecimal_are_utf16) {
    EXPECT_EQ(ReadOne("\"n\"=hex(2):e4,00,00,00", version5Heading), Value("n", REG_EXPAND_SZ, Bytes("\xC3\xA4\0")));
    EXPECT_EQ(ReadOne("\"n\"=hex(7):41,00,00,00,00,00", version5Heading), Value("n", REG_MULTI_SZ, Bytes("A\0\0")));
    EXPECT_EQ(ReadOne("\"n\"=hex(1):3d,d8,00,de", version5Heading), Value("n", REG_SZ, "\xF0\x9F\x98\x80"));
    EXPECT_EQ(ReadOne("\"n\"=hex:e4,00", version5Heading), Value("n", REG_BINARY, Bytes("\xE4\0")));
}

TEST(ReadRegText, version_5_in_utf16_and_in_utf8_with_and_without_mark) {
    const std::string text = std::string(version5Heading) + "\r\n\r\n[HKLM\\Stra\xC3\x9F"
                                                            "e]\r\n\"n\"=\"\xE2\x82\xAC\"\r\n";
    for (const std::string &bytes : {"\xFF\xFE" + Utf16(text), "\xEF\xBB\xBF" + text, text}) {
        const auto keys = Read(bytes);
        ASSERT_EQ(keys.size(), 1u);
        EXPECT_EQ(keys[0].key.path, "Stra\xC3\x9F"
                                    "e");
        EXPECT_EQ(keys[0].values.at(0).data, Bytes("\xE2\x82\xAC\0"));
    }
}

TEST(ReadRegText, regedit4_keeps_bytes_that_are_no_unicode) {
    EXPECT_EQ(ReadOne("\"\xE4\"=\"\xFF\""), Value("\xE4", REG_SZ, Bytes("\xFF\0")));
}

// It could be written, but in no file of version 5.00 any more.
TEST(ReadRegText, version_5_refuses_bytes_that_are_no_unicode) {
    std::vector<RegKey> keys;
    const auto errors = ReadRegText("Windows Registry Editor Version 5.00\n[HKLM\\a]\n\"v\"=\"\xFC\"\n", &keys);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, 3);
    EXPECT_TRUE(keys.empty());
}

TEST(ReadRegText, every_error_names_its_line_and_leaves_nothing) {
    struct Wrong {
        std::string text;
        int line;
        const char *says;
    };
    const Wrong wrongs[] = {
        {"", 1, "first line"},
        {"[HKLM\\k]\n", 1, "first line"},
        {"\n\nREGEDIT5\n", 3, "first line"},
        {"REGEDIT4 extra\n", 1, "first line"},
        {"Windows Registry Editor Version 6.00\n", 1, "first line"},
        {"REGEDIT4\n\"n\"=\"x\"\n", 2, "before the first key"},
        {"REGEDIT4\n[HKLM\\k\n", 2, "closing bracket"},
        {"REGEDIT4\n[HKXX\\k]\n", 2, "root"},
        {"REGEDIT4\n[HKLM/k]\n", 2, "root"},
        {"REGEDIT4\n[]\n", 2, "root"},
        {"REGEDIT4\n[HKLM\\\\k]\n", 2, "empty name"},
        {"REGEDIT4\n[HKLM\\k\\\\]\n", 2, "empty name"},
        {"REGEDIT4\n[-HKLM]\n", 2, "root key cannot be deleted"},
        {"REGEDIT4\n[HKLM\\k] x\n", 2, "end of the line"},
        {"REGEDIT4\n[-HKLM\\k]\n\"n\"=\"x\"\n", 3, "deleted"},
        {"REGEDIT4\n[HKLM\\k]\nnonsense\n", 3, "neither"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\n", 3, "closing quote"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=\"open\n\n", 3, "closing quote"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=\"open\\", 3, "closing quote"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=\"a\\n\"\n", 3, "backslash"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\":\"x\"\n", 3, "equals sign"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=\n", 3, "quoted text, dword"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=qword:1\n", 3, "quoted text, dword"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=\"x\" y\n", 3, "end of the line"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=-1\n", 3, "end of the line"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=dword:\n", 3, "one to eight"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=dword:x\n", 3, "one to eight"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=dword:-1\n", 3, "one to eight"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=dword:123456789\n", 3, "end of the line"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex\n", 3, "colon"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex(7:00\n", 3, "type in hex"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex(g):00\n", 3, "type in hex"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex():00\n", 3, "type in hex"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex(100000000):00\n", 3, "type in hex"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:0\n", 3, "pairs"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:001\n", 3, "pairs"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:0g\n", 3, "pairs"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:-1\n", 3, "pairs"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:00 01\n", 3, "comma"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:00,\\ x\n", 3, "must end its line"},
        {"REGEDIT4\n[HKLM\\k]\n\"n\"=hex:00,\\\n0\n", 4, "pairs"},
        {std::string(version5Heading) + "\n[HKLM\\k]\n\"n\"=hex(7):41,00,00\n", 3, "UTF-16LE"},
        {std::string(version5Heading) + "\n[HKLM\\k]\n\"n\"=hex(2):00,d8,41,00\n", 3, "UTF-16LE"},
        {"\xFF\xFE"
         "x",
         1, "proper UTF-16"},
        {"\xFF\xFE" + std::string("\x00\xDC", 2), 1, "proper UTF-16"},
        {Bytes("REGEDIT4\n\0"), 2, "zero byte"},
    };
    for (const Wrong &wrong : wrongs) {
        std::vector<RegKey> keys(3);
        const auto errors = ReadRegText(wrong.text, &keys);
        ASSERT_FALSE(errors.empty()) << wrong.text;
        EXPECT_EQ(errors[0].line, wrong.line) << wrong.text;
        EXPECT_THAT(errors[0].text, HasSubstr(wrong.says)) << wrong.text;
        EXPECT_TRUE(keys.empty());
    }
}

TEST(ReadRegText, every_wrong_line_is_told) {
    std::vector<RegKey> keys;
    const auto errors =
        ReadRegText("REGEDIT4\n[HKLM\\a]\n\"x\"=nonsense\n\"y\"=\"right\"\n\"h\"=hex:0g,\\\n  00,\\\n  01\n"
                    "[HKXX\\b]\n\"below\"=\"it\"\nwhat\n",
                    &keys);
    std::vector<int> lines;
    for (const RegTextError &error : errors) {
        lines.push_back(error.line);
    }
    EXPECT_EQ(lines, (std::vector<int>{3, 5, 8, 10}));
    EXPECT_TRUE(keys.empty());
}

TEST(ReadRegText, errors_end_at_a_number_that_can_be_read) {
    std::string text = "REGEDIT4\n";
    for (int i = 0; i < 500; ++i) {
        text += "wrong\n";
    }
    std::vector<RegKey> keys;
    EXPECT_EQ(ReadRegText(text, &keys).size(), mostRegTextErrors);
}

TEST(ReadRegText, lenient_takes_what_can_be_read) {
    std::vector<RegKey> keys;
    const auto errors = ReadRegText(
        "no header\n[HKLM\\a]\n\"p\"=\"C:\\temp\"\n\"x\"=nonsense\n[HKXX\\b]\n\"below\"=\"it\"\n[HKLM\\c]\n", &keys,
        {.isLenient = true});
    EXPECT_EQ(errors.size(), 4u); // the header, its line, line 4 and line 5
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].key.path, "a");
    ASSERT_EQ(keys[0].values.size(), 1u);
    EXPECT_EQ(keys[0].values[0], Value("p", REG_SZ, Bytes("C:\\temp\0")));
    EXPECT_EQ(keys[1].key.path, "c");
}

TEST(ReadRegText, keys_and_values_know_their_lines) {
    const auto keys = Read("REGEDIT4\n\n[HKLM\\a]\n; remark\n\"v\"=\"over\nlines\"\n\"w\"=hex:00,\\\n  01\n\"x\"=-\n");
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(keys[0].line, 3);
    ASSERT_EQ(keys[0].values.size(), 3u);
    EXPECT_EQ(keys[0].values[0].line, 5);
    EXPECT_EQ(keys[0].values[1].line, 7);
    EXPECT_EQ(keys[0].values[2].line, 9);
}

TEST(ReadRegText, utf16_of_both_byte_orders_with_and_without_mark) {
    const std::string text = std::string(version5Heading) + "\r\n[HKLM\\k]\r\n\"n\"=\"\xE2\x82\xAC\"\r\n";
    const std::string little = Utf16(text);
    std::string big = little;
    for (std::size_t i = 0; i < big.size(); i += 2) {
        std::swap(big[i], big[i + 1]);
    }
    for (const std::string &bytes : {little, "\xFF\xFE" + little, big, "\xFE\xFF" + big}) {
        const auto keys = Read(bytes);
        ASSERT_EQ(keys.size(), 1u);
        EXPECT_EQ(keys[0].values.at(0), Value("n", REG_SZ, Bytes("\xE2\x82\xAC\0")));
    }
}

// Some editors of old end a file with it.
TEST(ReadRegText, a_mark_of_the_end_of_the_file_is_no_text) {
    EXPECT_EQ(Read("REGEDIT4\n[HKLM\\k]\n\x1A").size(), 1u);
    EXPECT_EQ(Read("\xFF\xFE" + Utf16(std::string(version5Heading) + "\n[HKLM\\k]\n\x1A")).size(), 1u);
    std::vector<RegKey> keys;
    EXPECT_EQ(ReadRegText("REGEDIT4\n\x1A\n[HKLM\\k]\n", &keys).size(), 1u); // in the middle it is one
}

TEST(ReadRegText, an_encoding_that_is_told_holds_for_the_text_and_for_regedit4_strings_in_hexadecimal) {
    std::vector<RegKey> keys;
    const RegReadingRules rules = {.encoding = "CP1252"};
    EXPECT_TRUE(ReadRegText("REGEDIT4\n[HKLM\\\xE4]\n\"v\"=\"\x80\"\n\"x\"=hex(2):80,00\n\"b\"=hex:80\n", &keys, rules)
                    .empty());
    EXPECT_EQ(keys.at(0).key.path, "\xC3\xA4");
    EXPECT_EQ(keys[0].values.at(0), Value("v", REG_SZ, Bytes("\xE2\x82\xAC\0")));
    EXPECT_EQ(keys[0].values.at(1), Value("x", REG_EXPAND_SZ, Bytes("\xE2\x82\xAC\0")));
    EXPECT_EQ(keys[0].values.at(2), Value("b", REG_BINARY, "\x80"));
    const auto errors =
        ReadRegText("REGEDIT4\n[HKLM\\k]\n\"v\"=\"\x81\"\n", &keys, rules); // 0x81 is no character there
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, 3);
}

TEST(ReadRegText, every_cut_of_a_file_is_read_or_refused) {
    const std::string text = "REGEDIT4\r\n\r\n[HKLM\\k]\r\n\"a\\\\b\"=\"c\\\"d\"\r\n@=dword:00000001\r\n"
                             "\"h\"=hex(7):41,00,\\\r\n  00\r\n[-HKLM\\l]\r\n";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        std::vector<RegKey> keys;
        (void)ReadRegText(std::string(text.data(), length), &keys);
    }
    EXPECT_EQ(Read(text).size(), 2u);
}

namespace {

std::vector<RegKey> EverythingTextual() {
    RegKey key{{HKEY_LOCAL_MACHINE, "a \\with space]\\k"}, false, {}};
    key.values = {Value("", REG_SZ, Bytes("unnamed\0")),
                  Value("q\"b\\", REG_SZ, Bytes("q\"b\\\0")),
                  Value("line\nend", REG_SZ, Bytes("one\r\ntwo\0")),
                  Value("no end", REG_SZ, "text"),
                  Value("two ends", REG_SZ, Bytes("text\0\0")),
                  Value("nothing", REG_SZ, ""),
                  Value("umlaut \xC3\xA4", REG_SZ, Bytes("\xE2\x82\xAC \xF0\x9F\x98\x80\0")),
                  Value("d", REG_DWORD, Bytes("\1\2\3\xFF")),
                  Value("short d", REG_DWORD, "\1"),
                  Value("e", REG_EXPAND_SZ, Bytes("%PATH%\0")),
                  Value("m", REG_MULTI_SZ, Bytes("one\0two\0\0")),
                  Value("odd", 77, "\x80\x81"),
                  Value("long", REG_BINARY, std::string(1000, '\xAB'))};
    RegKey gone{{HKEY_USERS, "gone"}, true, {}};
    RegKey root{{HKEY_USERS, ""}, false, {}};
    root.values.push_back(Value("v", REG_NONE, ""));
    root.values.back().isDeleted = true;
    return {key, gone, root};
}

void ExpectSame(std::vector<RegKey> read, const std::vector<RegKey> &written) {
    ASSERT_EQ(read.size(), written.size());
    for (std::size_t i = 0; i < read.size(); ++i) {
        EXPECT_EQ(KeyPathText(read[i].key), KeyPathText(written[i].key));
        EXPECT_EQ(read[i].isDeleted, written[i].isDeleted);
        EXPECT_EQ(read[i].values, written[i].values);
    }
}

} // namespace

TEST(WriteRegText, both_dialects_read_back_as_they_were) {
    for (const RegDialect dialect : {RegDialect::regedit4, RegDialect::version5}) {
        std::string text, culprit;
        ASSERT_TRUE(WriteRegText(EverythingTextual(), dialect, &text, &culprit)) << culprit;
        ExpectSame(Read(text), EverythingTextual());
    }
}

TEST(WriteRegText, regedit4_text_is_the_one_expected) {
    RegKey key{{HKEY_LOCAL_MACHINE, "k"}, false, {}};
    key.values = {Value("", REG_SZ, Bytes("x\0")), Value("d", REG_DWORD, Bytes("\x10\0\0\0")),
                  Value("m", REG_MULTI_SZ, Bytes("A\0\0")), Value("long", REG_BINARY, std::string(30, '\1'))};
    std::string text, culprit;
    ASSERT_TRUE(WriteRegText({key}, RegDialect::regedit4, &text, &culprit));
    EXPECT_EQ(text, "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\k]\n@=\"x\"\n\"d\"=dword:00000010\n\"m\"=hex(7):41,00,00\n"
                    "\"long\"=hex:01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,01,\\\n"
                    "  01,01,01,01,01,01,01,01\n");
}

TEST(WriteRegText, version_5_is_utf16_with_mark_and_crlf) {
    RegKey key{{HKEY_LOCAL_MACHINE, "k"}, false, {Value("m", REG_MULTI_SZ, Bytes("A\0\0"))}};
    std::string text, culprit;
    ASSERT_TRUE(WriteRegText({key}, RegDialect::version5, &text, &culprit));
    EXPECT_EQ(text, "\xFF\xFE" + Utf16("Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\k]\r\n"
                                       "\"m\"=hex(7):41,00,00,00,00,00\r\n"));
}

TEST(WriteRegText, bytes_that_are_no_utf8_fit_regedit4_only) {
    const RegKey inData{{HKEY_USERS, "k"}, false, {Value("v", REG_SZ, Bytes("\xFF\0"))}};
    const RegKey inName{{HKEY_USERS, "k"}, false, {Value("\xFF", REG_BINARY, "")}};
    const RegKey inMulti{{HKEY_USERS, "k"}, false, {Value("v", REG_MULTI_SZ, Bytes("\xC3\0\0"))}};
    for (const RegKey &key : {inData, inName, inMulti}) {
        std::string text, culprit;
        EXPECT_FALSE(WriteRegText({key}, RegDialect::version5, &text, &culprit));
        EXPECT_THAT(culprit, HasSubstr("HKEY_USERS"));
        ASSERT_TRUE(WriteRegText({key}, RegDialect::regedit4, &text, &culprit));
        ExpectSame(Read(text), {key});
    }
}

// A key whose name had an end of line in it could not be written, and one that is no UTF-8 as REGEDIT4 only.
TEST(WriteRegText, names_of_keys_read_back_whatever_bytes_they_are) {
    for (const std::string &path : {std::string("a\rb"), std::string("a\nb"), std::string("\r\n"),
                                    std::string("\n\\\n\\x0a"), std::string("x0d\\x0d"), std::string("\xFF\xFE\\x"),
                                    std::string("a\xC3\\\xBC"), std::string("\xC3\xBC\r"), std::string("a]\r]\x1B")}) {
        for (const RegDialect dialect : {RegDialect::regedit4, RegDialect::version5}) {
            RegKey key{{HKEY_USERS, path}, false, {Value("v", REG_SZ, Bytes("x\0"))}};
            std::string text, culprit;
            ASSERT_TRUE(WriteRegText({key}, dialect, &text, &culprit)) << culprit;
            const std::vector<RegKey> back = Read(text);
            ASSERT_EQ(back.size(), 1u);
            EXPECT_EQ(back[0].key.path, path);
            EXPECT_EQ(back[0].values, key.values);
        }
    }
}

TEST(WriteRegText, a_byte_that_a_line_cannot_hold_is_written_by_its_number) {
    std::string text, culprit;
    ASSERT_TRUE(WriteRegText({{{HKEY_USERS, "a\rb\\\nc\xFF"}, false, {}}}, RegDialect::regedit4, &text, &culprit));
    EXPECT_EQ(text, "REGEDIT4\n\n[HKEY_USERS\\a\\\\x0db\\\\\\x0ac\xFF]\n");
}

TEST(ReadRegText, bytes_by_their_numbers_make_no_name_that_no_key_can_have) {
    for (const char *line :
         {R"([HKU\a\\x00])", R"([HKU\a\\x5C])", R"([HKU\a\\x0])", R"([HKU\a\\x0g])", R"([HKU\a\\b])"}) {
        std::vector<RegKey> keys;
        EXPECT_FALSE(ReadRegText(std::string("REGEDIT4\n") + line, &keys).empty()) << line;
    }
}

TEST(Utf16, wrong_sequences_are_refused) {
    std::string converted;
    for (const char *text : {"\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80",
                             "\xF4\x90\x80\x80", "\xC3x", "\xF0\x9F\x98"}) {
        EXPECT_FALSE(Utf16BytesFromUtf8(text, &converted)) << testing::PrintToString(text);
    }
    for (const std::string &bytes :
         {Bytes("\x00"), Bytes("\x00\xD8"), Bytes("\x00\xDC\x41\x00"), Bytes("\x00\xD8\x00\xD8")})
        EXPECT_FALSE(Utf8FromUtf16Bytes(bytes, &converted)) << testing::PrintToString(bytes);
}

TEST(KeyPath, separators_roots_and_wrong_paths) {
    KeyPath key;
    ASSERT_TRUE(ParseKeyPath("hklm\\A\\b\\", &key));
    EXPECT_EQ(KeyPathText(key), "HKEY_LOCAL_MACHINE\\A\\b");
    ASSERT_TRUE(ParseKeyPath("HKU/a/b", &key));
    EXPECT_EQ(KeyPathText(key), "HKEY_USERS\\a\\b");
    ASSERT_TRUE(ParseKeyPath("HKU\\a/b", &key));
    EXPECT_EQ(key.path, "a/b");
    ASSERT_TRUE(ParseKeyPath("HKEY_USERS", &key));
    EXPECT_EQ(KeyPathText(Below(Below(key, "x"), "y")), "HKEY_USERS\\x\\y");
    for (const char *wrong : {"", "\\", "x", "HKLMx\\a", "\\HKLM\\a", "HKLM\\\\a", "HKLM\\a\\\\", "HKLM//a"})
        EXPECT_FALSE(ParseKeyPath(wrong, &key)) << wrong;
}
