// SPDX-License-Identifier: MIT
// Memory and message texts.
#include "tests/support/win32_handle.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr DWORD fromSystem = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
constexpr DWORD fromString = FORMAT_MESSAGE_FROM_STRING;

std::string SystemText(DWORD flags, DWORD code) {
    char buffer[512] = "untouched";
    const DWORD length = FormatMessageA(flags, nullptr, code, 0, buffer, sizeof buffer, nullptr);
    EXPECT_EQ(length == 0 ? 9 : length, std::strlen(buffer));
    return buffer;
}

// Formats a text with arguments, as a program would.
std::string Format(const char *text, ...) {
    char *buffer = nullptr;
    va_list arguments;
    va_start(arguments, text);
    const DWORD length = FormatMessageA(fromString | FORMAT_MESSAGE_ALLOCATE_BUFFER, text, 0, 0,
                                        reinterpret_cast<LPSTR>(&buffer), 0, &arguments);
    va_end(arguments);
    if (length == 0) return "failed: " + std::to_string(GetLastError());
    std::string formatted = buffer;
    EXPECT_EQ(formatted.size(), length);
    EXPECT_EQ(LocalFree(buffer), nullptr);
    return formatted;
}

TEST(FormatMessage, of_a_code_is_a_sentence_with_a_line_break) {
    const std::string text = SystemText(fromSystem, ERROR_SERVICE_DOES_NOT_EXIST);
    EXPECT_TRUE(std::isupper(text[0])) << text;
    EXPECT_EQ(text.substr(text.size() - 3), ".\r\n");
    EXPECT_EQ(SystemText(fromSystem | FORMAT_MESSAGE_FROM_HMODULE, ERROR_SERVICE_DOES_NOT_EXIST), text);
    EXPECT_EQ(SystemText(fromSystem, 0x80070000u + ERROR_SERVICE_DOES_NOT_EXIST), text);
}

TEST(FormatMessage, without_line_breaks_ends_with_a_blank) {
    const std::string text = SystemText(fromSystem, ERROR_INVALID_HANDLE);
    EXPECT_EQ(SystemText(fromSystem | FORMAT_MESSAGE_MAX_WIDTH_MASK, ERROR_INVALID_HANDLE),
              text.substr(0, text.size() - 2) + " ");
}

TEST(FormatMessage, of_an_unknown_code_is_317) {
    for (const DWORD code : {DWORD{99999}, DWORD{0xC0000005}}) {
        SetLastError(0);
        EXPECT_EQ(SystemText(fromSystem, code), "untouched");
        EXPECT_EQ(GetLastError(), DWORD{ERROR_MR_MID_NOT_FOUND});
    }
}

TEST(FormatMessage, allocates_what_LocalFree_takes_and_at_least_what_was_asked_for) {
    char *buffer = nullptr;
    const DWORD flags = fromSystem | FORMAT_MESSAGE_ALLOCATE_BUFFER;
    const DWORD length =
        FormatMessageA(flags, nullptr, ERROR_INVALID_HANDLE, 0, reinterpret_cast<LPSTR>(&buffer), 1000, nullptr);
    ASSERT_NE(length, 0u) << GetLastError();
    EXPECT_EQ(std::strlen(buffer), length);
    std::memset(buffer + length, 'x', 1000 - length);
    EXPECT_EQ(LocalFree(buffer), nullptr);
}

TEST(FormatMessage, room_one_below_at_and_above_what_is_needed) {
    const std::string text = SystemText(fromSystem, ERROR_INVALID_HANDLE);
    std::vector<char> buffer(text.size() + 2, '#');
    const auto format = [&](std::size_t room) {
        return FormatMessageA(fromSystem, nullptr, ERROR_INVALID_HANDLE, 0, buffer.data(), static_cast<DWORD>(room),
                              nullptr);
    };
    EXPECT_CODE(format(text.size()), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_CODE(format(0), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(format(text.size() + 1), text.size());
    EXPECT_EQ(buffer.back(), '#');
    EXPECT_EQ(format(text.size() + 2), text.size());
    EXPECT_EQ(buffer.data(), text);
}

TEST(FormatMessage, sources_that_cannot_be_are_87_and_a_module_has_no_texts) {
    char buffer[16];
    const auto format = [&](DWORD flags, const void *source) {
        return FormatMessageA(flags, source, 0, 0, buffer, sizeof buffer, nullptr);
    };
    EXPECT_CODE(format(0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(format(fromString, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(format(fromString | fromSystem, "x"), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(format(FORMAT_MESSAGE_FROM_HMODULE, nullptr), ERROR_MR_MID_NOT_FOUND);
    EXPECT_CODE(FormatMessageA(fromSystem, nullptr, 0, 0, nullptr, 16, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(FormatMessageW(fromSystem, nullptr, 0, 0, nullptr, 16, nullptr), ERROR_INVALID_PARAMETER);
}

TEST(FormatMessage, inserts_are_strings_unless_they_say_otherwise) {
    EXPECT_EQ(Format("%1 %2!s! %1", "one", "two"), "one two one");
    EXPECT_EQ(Format("%3!d! %2!u! %1!x! %1!X! %1!08lx!", 0xABu, 4000000000u, -5), "-5 4000000000 ab AB 000000ab");
    EXPECT_EQ(Format("[%1!-6s!][%1!6s!][%1!.2s!]", "abc"), "[abc   ][   abc][ab]");
    EXPECT_EQ(Format("%1!c!%2!i!", 'x', 12), "x12");
    EXPECT_EQ(Format("%1!S! %1!ls!", Wide(u"w\u00E4")), "w\xC3\xA4 w\xC3\xA4");
    EXPECT_EQ(Format("%1", static_cast<const char *>(nullptr)), "(null)");
    if (sizeof(void *) == 8) {
        EXPECT_EQ(Format("%1!I64u! %1!lld!", std::uint64_t{1} << 40), "1099511627776 1099511627776");
    }
}

TEST(FormatMessage, escapes) {
    EXPECT_EQ(Format("100%% sure%!%.%n%tend%r%b|"), "100% sure!.\r\n\tend\r |");
    EXPECT_EQ(Format("stops here%0 and not here"), "stops here");
    EXPECT_EQ(Format("a line\nanother\r\n"), "a line\nanother\r\n");
    EXPECT_EQ(Format("at the end %"), "at the end %");
}

TEST(FormatMessage, inserts_that_cannot_be_are_87) {
    for (const char *text : {"%1!d", "%1!f!", "%1!ss!", "%1!!", "%1!99999d!", "%1!*d!", "%1!n!", "%1!.99999s!"}) {
        EXPECT_EQ(Format(text, 1), "failed: 87") << text;
    }
    char buffer[16];
    EXPECT_CODE(FormatMessageA(fromString, "%1", 0, 0, buffer, sizeof buffer, nullptr), ERROR_INVALID_PARAMETER);
}

TEST(FormatMessage, inserts_that_are_to_be_ignored_stay) {
    char buffer[32];
    EXPECT_NE(FormatMessageA(fromString | FORMAT_MESSAGE_IGNORE_INSERTS, "%1 %2!d! %n", 0, 0, buffer, 32, nullptr), 0u);
    EXPECT_STREQ(buffer, "%1 %2!d! %n");
}

TEST(FormatMessage, arguments_in_an_array) {
    const DWORD_PTR words[] = {reinterpret_cast<DWORD_PTR>("one"), 2};
    char buffer[32];
    const DWORD length = FormatMessageA(fromString | FORMAT_MESSAGE_ARGUMENT_ARRAY, "%2!d! %1", 0, 0, buffer, 32,
                                        reinterpret_cast<va_list *>(const_cast<DWORD_PTR *>(words)));
    EXPECT_EQ(length, 5u);
    EXPECT_STREQ(buffer, "2 one");
}

TEST(FormatMessage, wide_is_the_same_in_16_bit_characters) {
    std::vector<WCHAR> buffer(100);
    const std::string text = SystemText(fromSystem, ERROR_INVALID_HANDLE);
    EXPECT_EQ(FormatMessageW(fromSystem, nullptr, ERROR_INVALID_HANDLE, 0, buffer.data(), 100, nullptr), text.size());
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + static_cast<long>(text.size())), text);

    const DWORD_PTR words[] = {reinterpret_cast<DWORD_PTR>(u"\u00E4\U0001F600"), reinterpret_cast<DWORD_PTR>("n")};
    WCHAR *allocated = nullptr;
    const DWORD length = FormatMessageW(fromString | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER,
                                        u"<%1> %2!hs!", 0, 0, reinterpret_cast<LPWSTR>(&allocated), 0,
                                        reinterpret_cast<va_list *>(const_cast<DWORD_PTR *>(words)));
    ASSERT_EQ(length, 7u);
    EXPECT_EQ(std::u16string(reinterpret_cast<char16_t *>(allocated)), u"<\u00E4\U0001F600> n");
    EXPECT_EQ(LocalFree(allocated), nullptr);
}

TEST(FormatMessage, text_that_cannot_be_converted_is_1113) {
    WCHAR buffer[16];
    const char16_t half[] = {0xDC00, 0};
    EXPECT_CODE(FormatMessageW(fromString, half, 0, 0, buffer, 16, nullptr), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(Format("%1!ls!", half), "failed: 1113");
    const DWORD_PTR words[] = {reinterpret_cast<DWORD_PTR>("\xFF")};
    EXPECT_CODE(FormatMessageW(fromString | FORMAT_MESSAGE_ARGUMENT_ARRAY, u"%1!hs!", 0, 0, buffer, 16,
                               reinterpret_cast<va_list *>(const_cast<DWORD_PTR *>(words))),
                ERROR_NO_UNICODE_TRANSLATION);
}

TEST(LocalAlloc, zeroes_when_asked_and_gives_memory_for_no_bytes) {
    auto *bytes = static_cast<char *>(LocalAlloc(LPTR, 100));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
    EXPECT_EQ(LocalFree(bytes), nullptr);
    HANDLE none = LocalAlloc(LMEM_FIXED, 0);
    EXPECT_NE(none, nullptr);
    EXPECT_EQ(LocalFree(none), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
}

TEST(LocalAlloc, other_flags_are_87) { EXPECT_CODE(LocalAlloc(0x2, 100) != nullptr, ERROR_INVALID_PARAMETER); }

// The sanitizers end a program that asks for too much.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(LocalAlloc, too_much_is_8) {
    volatile std::size_t tooMuch = static_cast<std::size_t>(-1) - 100;
    EXPECT_CODE(LocalAlloc(LMEM_FIXED, tooMuch) != nullptr, ERROR_NOT_ENOUGH_MEMORY);
}
#endif

} // namespace
