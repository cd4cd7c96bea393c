// SPDX-License-Identifier: MIT
// Printing of 16-bit characters: what the formats of Win32's C library give.
#include "tests/support/win32_handle.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

std::u16string Formatted(LPCWSTR format, ...) {
    WCHAR text[512];
    va_list values;
    va_start(values, format);
    const int length = tvFormatWide(text, 512, format, values);
    va_end(values);
    EXPECT_GE(length, 0) << GetLastError();
    return {text, static_cast<std::size_t>(length)};
}

int IntoRoom(WCHAR *to, std::size_t room, LPCWSTR format, ...) {
    va_list values;
    va_start(values, format);
    const int length = tvFormatWide(to, room, format, values);
    va_end(values);
    return length;
}

int AsUtf8(char *to, std::size_t room, LPCWSTR format, ...) {
    va_list values;
    va_start(values, format);
    const int length = tvFormatWideAsUtf8(to, room, format, values);
    va_end(values);
    return length;
}

TEST(FormatWide, texts_are_wide_unless_their_kind_is_named) {
    EXPECT_EQ(Formatted(u"%s-%S-%ls-%hs-%ws", u"größer", "größer", u"ä", "ä", u"𝄞"), u"größer-größer-ä-ä-𝄞");
    EXPECT_EQ(Formatted(u"%c%C%lc%hc", u'ß', 'x', u'ä', 'y'), u"ßxäy");
    EXPECT_EQ(Formatted(u"%s %S", static_cast<LPCWSTR>(nullptr), static_cast<LPCSTR>(nullptr)), u"(null) (null)");
    EXPECT_EQ(Formatted(u"%S", "a\xFF"), u"a\uFFFD");
    EXPECT_EQ(Formatted(u"%hc", '\xE4'), u"\uFFFD");
}

TEST(FormatWide, width_and_precision_count_characters) {
    EXPECT_EQ(Formatted(u"[%5s|%-5s|%.2s|%*s|%.*s]", u"äö", u"äö", u"äöü", -4, u"x", 1, u"yz"),
              u"[   äö|äö   |äö|x   |y]");
    const WCHAR open[] = {u'a', u'b'}; // not terminated
    EXPECT_EQ(Formatted(u"%.2s", open), u"ab");
    EXPECT_EQ(Formatted(u"%3c|%-3c|", u'ä', u'ö'), u"  ä|ö  |");
}

// LONG and DWORD have 32 bits, and sources print them with %ld and %lu.
TEST(FormatWide, long_means_32_bits_as_on_win32) {
    const auto garbageAbove = static_cast<unsigned long>(UINT64_C(0xDEADBEEF00000007));
    EXPECT_EQ(Formatted(u"%ld %lu %lx", garbageAbove, garbageAbove, garbageAbove), u"7 7 7");
    EXPECT_EQ(Formatted(u"%ld %lu %#lx", -1, -1, -1), u"-1 4294967295 0xffffffff");
    EXPECT_EQ(Formatted(u"%I64d %lld %I64x %ju", INT64_C(-5000000000), INT64_C(5000000000), UINT64_C(0xABCDEF0123),
                        UINT64_C(5000000000)),
              u"-5000000000 5000000000 abcdef0123 5000000000");
    EXPECT_EQ(Formatted(u"%zu %Iu %I32d", sizeof(int), sizeof(int), 3), u"4 4 3");
    EXPECT_EQ(Formatted(u"%hd %hhu", 65537, 257), u"1 1");
}

TEST(FormatWide, numbers_have_flags_width_and_precision) {
    EXPECT_EQ(Formatted(u"%d|%+d|% d|%05d|%-5d|%5.3d|%o|%X|%i|%%", 7, 7, 7, 7, 7, 7, 8, 255, -7),
              u"7|+7| 7|00007|7    |  007|10|FF|-7|%");
    EXPECT_EQ(Formatted(u"%.2f %e %g %Lf", 1.5, 1.0, 0.25, 2.0L), u"1.50 1.000000e+00 0.25 2.000000");
    const std::size_t digits = 2 * sizeof(void *);
    EXPECT_EQ(Formatted(u"%p", reinterpret_cast<void *>(0xABC)), std::u16string(digits - 3, u'0') + u"ABC");
}

TEST(FormatWide, text_is_cut_to_the_room_and_its_whole_length_told) {
    for (const std::size_t room : {std::size_t{5}, std::size_t{6}, std::size_t{7}}) {
        WCHAR text[8];
        std::memset(text, 0x55, sizeof text);
        EXPECT_EQ(IntoRoom(text, room, u"%s", u"zwölf"), 5);
        EXPECT_EQ(std::u16string(text), room < 6 ? u"zwöl" : u"zwölf");
        EXPECT_EQ(text[room], 0x5555);
    }
    EXPECT_EQ(IntoRoom(nullptr, 0, u"%d", 123), 3);
}

TEST(FormatWide, what_is_not_understood_is_87_and_leaves_an_empty_text) {
    for (const LPCWSTR format : {u"a%n", u"%y", u"%", u"%l", u"%99999d", u"%.99999d", u"ä%ä"}) {
        WCHAR text[8] = {u'x'};
        SetLastError(0);
        EXPECT_EQ(IntoRoom(text, 8, format, 0), -1);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        EXPECT_EQ(text[0], 0);
    }
    EXPECT_EQ(IntoRoom(nullptr, 0, nullptr), -1);
}

TEST(FormatWideAsUtf8, gives_utf8_and_refuses_what_is_no_utf16) {
    char text[32];
    EXPECT_EQ(AsUtf8(text, sizeof text, u"%s %d", u"größer 𝄞", 7), 15);
    EXPECT_STREQ(text, "größer 𝄞 7");
    EXPECT_EQ(AsUtf8(text, 3, u"abcdef"), 6);
    EXPECT_STREQ(text, "ab");
    SetLastError(0);
    EXPECT_EQ(AsUtf8(text, sizeof text, u"%c", 0xD800), -1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION});
    EXPECT_STREQ(text, "");
}

} // namespace
