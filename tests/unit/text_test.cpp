// SPDX-License-Identifier: MIT
// The small routines on bytes and texts that several programs share.
#include "util/base64.h"
#include "util/little_endian.h"
#include "util/multi_string.h"
#include "util/string_list.h"
#include "util/utf16.h"
#include "util/utf8.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TakeString, each_string_and_then_nothing) {
    const std::string bytes("one\0two\0\0rest", 13);
    std::string_view rest = bytes;
    EXPECT_EQ(TakeString(&rest), "one");
    const std::string_view two = TakeString(&rest);
    EXPECT_STREQ(two.data(), "two");
    EXPECT_EQ(TakeString(&rest), "");
    EXPECT_EQ(rest, "rest");
}

TEST(TakeString, stays_inside_bytes_without_a_terminator) {
    std::string_view rest = "end";
    EXPECT_EQ(TakeString(&rest), "end");
    EXPECT_EQ(TakeString(&rest), "");
    EXPECT_EQ(rest.size(), 0u);
}

TEST(MultiStringBytes, counts_both_terminators) {
    EXPECT_EQ(MultiStringBytes("a\0bc\0"), 6u);
    EXPECT_EQ(MultiStringBytes(""), 1u);
}

TEST(SplitMultiString, stops_at_the_end_of_the_bytes_without_a_terminator) {
    EXPECT_THAT(SplitMultiString({"one\0two", 7}), ElementsAre("one", "two"));
    EXPECT_THAT(SplitMultiString({"one\0\0two\0\0", 10}), ElementsAre("one"));
    EXPECT_THAT(SplitMultiString({}), IsEmpty());
}

TEST(JoinMultiString, no_strings_are_one_terminator) {
    EXPECT_EQ(JoinMultiString({}), std::string("\0", 1));
    EXPECT_EQ(JoinMultiString({"a", "bc"}), std::string("a\0bc\0\0", 6));
}

TEST(Dword, lowest_byte_first) {
    EXPECT_EQ(DwordAt("\x04\x03\x02\xF1"), 0xF1020304u);
    char bytes[dwordBytes];
    PutDword(0xF1020304, bytes);
    EXPECT_EQ(std::string(bytes, sizeof bytes), "\x04\x03\x02\xF1");
}

TEST(Base64, fills_up_with_signs_of_equality) {
    EXPECT_EQ(Base64(""), "");
    EXPECT_EQ(Base64("f"), "Zg==");
    EXPECT_EQ(Base64("fo"), "Zm8=");
    EXPECT_EQ(Base64("foo"), "Zm9v");
    EXPECT_EQ(Base64("\xFF\xFE\xFD\xFC"), "//79/A==");
}

TEST(Base64, gives_its_bytes_back) {
    for (const std::string bytes : {"", "f", "fo", "foo", "foob", "\xFF\xFE\xFD\xFC\x01"}) {
        EXPECT_EQ(BytesOfBase64(Base64(bytes)), bytes);
    }
}

TEST(Base64, is_read_only_as_it_is_written) {
    for (const char *text : {"Z", "Zg", "Zg=", "Zh==", "Zg===", "Zm9v=", "Zm 9v", "=", "Z=8="}) {
        EXPECT_EQ(BytesOfBase64(text), std::nullopt) << text;
    }
}

TEST(IsUtf8, proper_characters_only) {
    for (const char *text :
         {"", "a", "\xC2\x80", "\xE0\xA0\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(IsUtf8(text)) << text;
    for (const char *text : {"\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                             "\xF5\x80\x80\x80", "\xC2", "\xE2\x82", "a\xFF"}) {
        EXPECT_FALSE(IsUtf8(text)) << text;
    }
}

TEST(TakeUtf8, leaves_what_is_no_character) {
    std::string_view text = "\xE2\x82\xAC\xE2\x82";
    std::uint32_t character = 0;
    EXPECT_TRUE(TakeUtf8(&text, &character));
    EXPECT_EQ(character, 0x20ACu);
    EXPECT_FALSE(TakeUtf8(&text, &character));
    EXPECT_EQ(text.size(), 2u);
}

TEST(Utf16, characters_of_one_to_four_bytes_there_and_back) {
    const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF";
    std::u16string units;
    ASSERT_TRUE(Utf16FromUtf8(text, &units));
    EXPECT_EQ(units, u"a\u00E4\u20AC\U0001F600\uFFFF");
    std::string back;
    ASSERT_TRUE(Utf8FromUtf16(units, &back));
    EXPECT_EQ(back, text);
}

TEST(Utf16, what_is_no_text_is_refused) {
    std::string bytes;
    for (const std::u16string &units : {std::u16string{0xD800}, std::u16string{0xDC00}, std::u16string{0xD800, u'a'},
                                        std::u16string{0xDC00, 0xD800}, std::u16string{0xD800, 0xD800}}) {
        EXPECT_FALSE(Utf8FromUtf16(units, &bytes)) << testing::PrintToString(units);
    }
    std::u16string units;
    for (const char *text : {"\x80", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"}) {
        EXPECT_FALSE(Utf16FromUtf8(text, &units)) << testing::PrintToString(text);
    }
}
