// SPDX-License-Identifier: MIT
// The cases of win32_text_test.cpp for 16-bit characters, and what only these have.
#define UNICODE
#define _UNICODE
#include "tests/unit/win32_text_test.cpp" // NOLINT(bugprone-suspicious-include)

namespace {

TEST_F(Win32TextWide, of_bytes_is_printed_between_others) {
    EXPECT_EQ(_sntprintf(room, 16, _T("%hs %S %lu"), "ä", "b", 7u), 5);
    EXPECT_EQ(String(room), u"ä b 7");
}

TEST_F(Win32TextWide, that_is_no_utf16_reaches_no_stream) {
    const WCHAR bad[] = {u'a', 0xD800, 0};
    EXPECT_EQ(Printed([&] { EXPECT_EQ(_tprintf(_T("%s"), bad), -1); }), "");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION});
}

TEST_F(Win32TextWide, numbers_beyond_32_bits_are_the_largest) {
    EXPECT_EQ(_ttol(_T("99999999999")), 2147483647);
    EXPECT_EQ(_ttol(_T("-99999999999")), -2147483647 - 1);
    EXPECT_EQ(_tcstoul(_T("99999999999"), nullptr, 10), 4294967295u);
}

} // namespace
