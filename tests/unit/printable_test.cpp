// SPDX-License-Identifier: MIT
// What of a text reaches a terminal as it is.
#include "util/printable.h"

#include <gtest/gtest.h>

namespace {

struct Shown {
    const char *what;
    std::string text;
    std::string utf8;  // as shown where UTF-8 is
    std::string ascii; // elsewhere
};

const Shown table[] = {
    {"plain", "plain text", "plain text", "plain text"},
    {"empty", "", "", ""},
    {"C0", std::string("a\0b\n\t\x1B[31m", 10), "a\\x00b\\x0a\\x09\\x1b[31m", "a\\x00b\\x0a\\x09\\x1b[31m"},
    {"DEL", "\x7F", "\\x7f", "\\x7f"},
    {"C1 as UTF-8",
     "\xC2\x9B"
     "31m",
     "\\xc2\\x9b31m", "\\xc2\\x9b31m"},
    {"first and last C1", "\xC2\x80\xC2\x9F\xC2\xA1", "\\xc2\\x80\\xc2\\x9f\xC2\xA1", "\\xc2\\x80\\xc2\\x9f\\xc2\\xa1"},
    {"C1 as a byte", "\x9B", "\\x9b", "\\x9b"},
    {"two bytes", "\xC3\xBC", "\xC3\xBC", "\\xc3\\xbc"},
    {"three bytes", "\xE4\xB8\xAD", "\xE4\xB8\xAD", "\\xe4\\xb8\\xad"},
    {"four bytes", "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80", "\\xf0\\x9f\\x98\\x80"},
    {"cut", "a\xE4\xB8", "a\\xe4\\xb8", "a\\xe4\\xb8"},
    {"cut by another", "\xE4\xB8z", "\\xe4\\xb8z", "\\xe4\\xb8z"},
    {"overlong", "\xC0\xAF", "\\xc0\\xaf", "\\xc0\\xaf"},
    {"surrogate", "\xED\xA0\x80", "\\xed\\xa0\\x80", "\\xed\\xa0\\x80"},
    {"right-to-left override", "a\xE2\x80\xAEz", "a\\xe2\\x80\\xaez", "a\\xe2\\x80\\xaez"},
    {"isolate", "\xE2\x81\xA6", "\\xe2\\x81\\xa6", "\\xe2\\x81\\xa6"},
    {"Arabic letter mark", "\xD8\x9C", "\\xd8\\x9c", "\\xd8\\x9c"},
    {"zero-width space", "\xE2\x80\x8B", "\\xe2\\x80\\x8b", "\\xe2\\x80\\x8b"},
    {"zero-width joiner", "\xE2\x80\x8D", "\\xe2\\x80\\x8d", "\\xe2\\x80\\x8d"},
    {"byte-order mark", "\xEF\xBB\xBF", "\\xef\\xbb\\xbf", "\\xef\\xbb\\xbf"},
    {"line separator", "\xE2\x80\xA8", "\\xe2\\x80\\xa8", "\\xe2\\x80\\xa8"},
    {"soft hyphen", "\xC2\xAD", "\\xc2\\xad", "\\xc2\\xad"},
    {"Hangul filler", "\xE3\x85\xA4", "\\xe3\\x85\\xa4", "\\xe3\\x85\\xa4"},
    {"variation selector", "\xEF\xB8\x8F", "\\xef\\xb8\\x8f", "\\xef\\xb8\\x8f"},
    {"tag", "\xF3\xA0\x81\xA1", "\\xf3\\xa0\\x81\\xa1", "\\xf3\\xa0\\x81\\xa1"},
    {"between the ranges", "\xE2\x80\x90\xE2\x80\xA7\xE2\x80\xAF", "\xE2\x80\x90\xE2\x80\xA7\xE2\x80\xAF",
     "\\xe2\\x80\\x90\\xe2\\x80\\xa7\\xe2\\x80\\xaf"},
    {"path", "HKLM\\Software\\xyz\\x1", "HKLM\\Software\\xyz\\x1", "HKLM\\Software\\xyz\\x1"},
    {"what reads as an escape", "a\\x1bz\\xFFz", "a\\x5cx1bz\\x5cxFFz", "a\\x5cx1bz\\x5cxFFz"},
    {"backslash before a byte", "\\\x1B", "\\\\x1b", "\\\\x1b"},
    {"backslash at the end", "a\\", "a\\", "a\\"},
    {"zero behind a backslash", "a\\0", "a\\0", "a\\0"},
};

} // namespace

TEST(Printable, text_of_every_kind) {
    for (const Shown &row : table) {
        EXPECT_EQ(Printable(row.text, Charset::utf8), row.utf8) << row.what;
        EXPECT_EQ(Printable(row.text, Charset::ascii), row.ascii) << row.what;
    }
}

TEST(Printable, a_backslash_in_front_of_what_means_something_there_is_told_from_it) {
    EXPECT_EQ(Printable("a\\0b\\1", Charset::utf8, '0'), "a\\x5c0b\\1");
}

// The bytes can be had back: whatever reads as an escape is one.
TEST(Printable, different_texts_never_look_the_same) {
    const std::string alphabet = "\\x1b\x1B";
    for (std::size_t a = 0; a < 4096; ++a) {
        std::string text;
        for (std::size_t rest = a, i = 0; i < 5; ++i, rest /= alphabet.size()) {
            text.push_back(alphabet[rest % alphabet.size()]);
        }
        std::string back;
        const std::string printed = Printable(text, Charset::utf8);
        for (std::size_t i = 0; i < printed.size(); ++i) {
            const bool isEscape = printed[i] == '\\' && i + 3 < printed.size() && printed[i + 1] == 'x' &&
                                  isxdigit(printed[i + 2]) != 0 && isxdigit(printed[i + 3]) != 0;
            back.push_back(isEscape ? static_cast<char>(std::stoi(printed.substr(i + 2, 2), nullptr, 16)) : printed[i]);
            if (isEscape) i += 3;
        }
        ASSERT_EQ(back, text) << printed;
    }
}
