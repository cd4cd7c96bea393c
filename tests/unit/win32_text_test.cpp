// SPDX-License-Identifier: MIT
// tchar.h and strsafe.h, for bytes here and for 16-bit characters in win32_text_wide_test.cpp: the same sentences.
#include <gtest/gtest.h>
#include <strsafe.h>
#include <tchar.h>

#include <string>

namespace {

#ifdef _UNICODE
#define TextForm Win32TextWide
#else
#define TextForm Win32Text
#endif

struct TextForm : testing::Test {
    using String = std::basic_string<TCHAR>;
    TCHAR room[16] = {};

    // What a test has printed to standard output meanwhile.
    template <typename Print>
    static std::string Printed(Print print) {
        testing::internal::CaptureStdout();
        print();
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(TextForm, is_measured_copied_compared_and_searched) {
    EXPECT_EQ(_tcslen(_T("four")), 4u);
    EXPECT_EQ(_tcsnlen(_T("four"), 2), 2u);
    EXPECT_EQ(_tcscat(_tcscpy(room, _T("ab")), _T("cd")), room);
    EXPECT_EQ(String(room), _T("abcd"));
    EXPECT_EQ(_tcsncpy(room, _T("xyz"), 6), room); // filled up with zeroes
    EXPECT_EQ(String(room, 6), String(_T("xyz\0\0\0"), 6));
    EXPECT_LT(_tcscmp(_T("a"), _T("b")), 0);
    EXPECT_EQ(_tcsicmp(_T("ServiceName"), _T("SERVICENAME")), 0);
    EXPECT_GT(_tcsncmp(_T("ac"), _T("ab"), 2), 0);
    EXPECT_EQ(_tcsnicmp(_T("ABx"), _T("aby"), 2), 0);
    const TCHAR *const path = _T("/etc/tv/services");
    EXPECT_EQ(_tcschr(path, _T('t')), path + 2);
    EXPECT_EQ(_tcsrchr(path, _T('/')), path + 7);
    EXPECT_EQ(_tcschr(path, _T('q')), nullptr);
    EXPECT_EQ(_tcsstr(path, _T("tv/")), path + 5);
    EXPECT_EQ(_tcsstr(path, _T("vt")), nullptr);
    EXPECT_EQ(_tcsspn(path, _T("/cet")), 6u);
    EXPECT_EQ(_tcscspn(path, _T("v")), 6u);
    EXPECT_EQ(_tcspbrk(path, _T("sv")), path + 6);
    EXPECT_EQ(_tcspbrk(path, _T("q")), nullptr);
    TCHAR *const copy = _tcsdup(path);
    EXPECT_EQ(String(copy), path);
    free(copy);
}

TEST_F(TextForm, is_cut_into_words) {
    TCHAR line[] = _T(" -k  value ");
    TCHAR *next = nullptr;
    EXPECT_EQ(String(_tcstok_s(line, _T(" "), &next)), _T("-k"));
    EXPECT_EQ(String(_tcstok_s(nullptr, _T(" "), &next)), _T("value"));
    EXPECT_EQ(_tcstok_s(nullptr, _T(" "), &next), nullptr);
}

TEST_F(TextForm, is_read_as_a_number) {
    EXPECT_EQ(_ttoi(_T(" -12x")), -12);
    EXPECT_EQ(_ttol(_T("2147483647")), 2147483647);
    const TCHAR *const text = _T("0x1F rest");
    TCHAR *end = nullptr;
    EXPECT_EQ(_tcstoul(text, &end, 0), 0x1Fu);
    EXPECT_EQ(end, text + 4);
    EXPECT_EQ(_tcstol(_T("none"), &end, 10), 0);
    EXPECT_TRUE(_istdigit(_T('7')));
    EXPECT_FALSE(_istspace(_T('x')));
    EXPECT_EQ(_totlower(_T('Q')), _T('q'));
}

TEST_F(TextForm, is_printed_into_a_buffer) {
    EXPECT_EQ(_stprintf(room, _T("%s=%d"), _T("count"), 7), 7);
    EXPECT_EQ(String(room), _T("count=7"));
    for (const std::size_t size : {7u, 8u, 9u}) { // one too small, just enough, more
        EXPECT_EQ(_sntprintf(room, size, _T("%s=%d"), _T("count"), 7), 7);
        EXPECT_EQ(String(room), size < 8 ? _T("count=") : _T("count=7"));
        EXPECT_EQ(_stprintf_s(room, size, _T("%s=%d"), _T("count"), 7), size < 8 ? -1 : 7);
        EXPECT_EQ(_tcscpy_s(room, size, _T("count=7")), size < 8 ? 34 : 0);
        EXPECT_EQ(String(room), size < 8 ? _T("count=") : _T("count=7"));
        EXPECT_EQ(_tcscpy_s(room, size, _T("co")), 0);
        EXPECT_EQ(_tcscat_s(room, size, _T("unt=7")), size < 8 ? 34 : 0);
        EXPECT_EQ(String(room), size < 8 ? _T("count=") : _T("count=7"));
    }
    TCHAR longest[1025];
    const String text(2000, _T('x'));
    EXPECT_EQ(wsprintf(longest, _T("%s"), text.c_str()), 1024);
    EXPECT_EQ(String(longest), text.substr(0, 1024));
    EXPECT_EQ(wsprintf(longest, _T("%s error: %d"), _T("OpenService"), 1060), 23);
}

TEST_F(TextForm, is_printed_to_streams_as_utf8) {
    EXPECT_EQ(Printed([] { EXPECT_EQ(_tprintf(_T("%s %d%%\n"), _T("größer"), 7), 12); }), "größer 7%\n");
    EXPECT_EQ(Printed([] { _ftprintf(stdout, _T("plain\n")); }), "plain\n");
    EXPECT_EQ(Printed([] {
                  _putts(_T("ä %d"));
                  _fputts(_T("%s"), stdout);
              }),
              "ä %d\n%s");
    FILE *const none = _tfopen(_T("/proc/self/no such file"), _T("r"));
    EXPECT_EQ(none, nullptr);
    FILE *const some = _tfopen(_T("/proc/self/status"), _T("r"));
    ASSERT_NE(some, nullptr);
    EXPECT_EQ(fclose(some), 0);
}

TEST_F(TextForm, of_strsafe_is_cut_terminated_and_told) {
    for (const std::size_t size : {4u, 5u, 6u}) {
        const HRESULT expected = size < 5 ? STRSAFE_E_INSUFFICIENT_BUFFER : S_OK;
        const TCHAR *const found = size < 5 ? _T("abc") : _T("abcd");
        EXPECT_EQ(StringCchCopy(room, size, _T("abcd")), expected);
        EXPECT_EQ(String(room), found);
        EXPECT_EQ(StringCchPrintf(room, size, _T("%s%d"), _T("abc"), 4), expected);
        EXPECT_EQ(String(room), size < 5 ? _T("abc") : _T("abc4"));
        EXPECT_EQ(StringCbPrintf(room, size * sizeof(TCHAR), _T("%s"), _T("abcd")), expected);
        EXPECT_EQ(String(room), found);
        EXPECT_EQ(StringCchCopy(room, size, _T("ab")), S_OK);
        EXPECT_EQ(StringCchCat(room, size, _T("cd")), expected);
        EXPECT_EQ(String(room), found);
        EXPECT_EQ(StringCbCopy(room, size * sizeof(TCHAR), _T("abcd")), expected);
    }
    EXPECT_EQ(StringCchCopyN(room, 16, _T("abcd"), 2), S_OK);
    EXPECT_EQ(String(room), _T("ab"));
    std::size_t length = 9;
    EXPECT_EQ(StringCchLength(room, 16, &length), S_OK);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(StringCchLength(room, 2, &length), STRSAFE_E_INVALID_PARAMETER);
    EXPECT_EQ(StringCchPrintf(room, 0, _T("x")), STRSAFE_E_INVALID_PARAMETER);
    EXPECT_EQ(StringCchCopy(room, 0, _T("x")), STRSAFE_E_INVALID_PARAMETER);
    EXPECT_EQ(String(room), _T("ab"));
}

} // namespace
