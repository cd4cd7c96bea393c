// SPDX-License-Identifier: MIT
// The string, login and host routines of util.
#include "util/ktl_getlogin.h"
#include "util/ktl_host.h"
#include "util/ktl_strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace {

std::string Trimmed(std::string text) {
    _ktl_rmtrailingspaces(text.data());
    return text.c_str();
}

TEST(ktl_strdup, null_gives_null) { EXPECT_EQ(_ktl_strdup(nullptr), nullptr); }

TEST(ktl_strdup, empty_string_gives_a_new_empty_string) {
    const char *empty = "";
    char *copy = _ktl_strdup(empty);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, empty);
    EXPECT_STREQ(copy, "");
    free(copy);
}

TEST(ktl_strdup, copies_the_text_into_memory_of_its_own) {
    char text[] = "Spooler";
    char *copy = _ktl_strdup(text);
    text[0] = 'X';
    EXPECT_STREQ(copy, "Spooler");
    free(copy);
}

TEST(ktl_strcasecmp, equal_but_for_case_is_0) { EXPECT_EQ(_ktl_strcasecmp("Abc", "aBC"), 0); }

TEST(ktl_strcasecmp, two_empty_strings_are_equal) { EXPECT_EQ(_ktl_strcasecmp("", ""), 0); }

TEST(ktl_strcasecmp, result_is_the_difference_of_the_lower_case_forms) {
    EXPECT_EQ(_ktl_strcasecmp("abc", "ABD"), 'c' - 'd');
    EXPECT_EQ(_ktl_strcasecmp("ABD", "abc"), 'd' - 'c');
}

TEST(ktl_strcasecmp, a_prefix_is_smaller_by_the_character_that_follows) {
    EXPECT_EQ(_ktl_strcasecmp("ab", "abC"), 0 - 'c');
    EXPECT_EQ(_ktl_strcasecmp("abC", "ab"), 'c' - 0);
    EXPECT_EQ(_ktl_strcasecmp("", "x"), 0 - 'x');
}

TEST(ktl_strcasecmp, only_the_terminator_ends_a_string) {
    EXPECT_EQ(_ktl_strcasecmp("\1a", "\1b"), 'a' - 'b');
    EXPECT_EQ(_ktl_strcasecmp(" a", " B"), 'a' - 'b');
}

TEST(ktl_strcasecmp, underscore_sorts_below_letters_in_either_case) {
    EXPECT_LT(_ktl_strcasecmp("_", "A"), 0);
    EXPECT_LT(_ktl_strcasecmp("_", "a"), 0);
}

TEST(ktl_strcasecmp, byte_255_is_looked_up_as_minus_one_deliberate) {
    EXPECT_EQ(_ktl_strcasecmp("\xff", "a"), -1 - 'a');
    EXPECT_EQ(_ktl_strcasecmp("\xff", "\xff"), 0);
}

TEST(ktl_strcasecmp, other_bytes_above_127_compare_by_the_table_entry_of_their_negative_value_deliberate) {
    const int entry = tolower(static_cast<signed char>('\xc4'));
    EXPECT_EQ(_ktl_strcasecmp("\xc4", "a"), entry - 'a');
}

TEST(ktl_strncasecmp, compares_at_most_n_characters) {
    EXPECT_EQ(_ktl_strncasecmp("ABCx", "abcy", 3), 0);
    EXPECT_EQ(_ktl_strncasecmp("ABCx", "abcy", 4), 'x' - 'y');
}

TEST(ktl_strncasecmp, compares_from_the_first_character_on) {
    EXPECT_EQ(_ktl_strncasecmp("xb", "ab", 2), 'x' - 'a');
    EXPECT_EQ(_ktl_strncasecmp("x", "A", 1), 'x' - 'a');
}

TEST(ktl_strncasecmp, n_of_0_makes_any_two_strings_equal) { EXPECT_EQ(_ktl_strncasecmp("a", "b", 0), 0); }

TEST(ktl_strncasecmp, stops_at_the_terminators_before_n) {
    EXPECT_EQ(_ktl_strncasecmp("ab", "AB", 100), 0);
    EXPECT_EQ(_ktl_strncasecmp("ab", "ABC", 100), 0 - 'c');
    EXPECT_EQ(_ktl_strncasecmp("ABC", "ab", 100), 'c');
    EXPECT_EQ(_ktl_strncasecmp("ab", "abc", 2), 0);
}

TEST(ktl_strncasecmp, n_beyond_the_range_of_int_is_fine) { EXPECT_EQ(_ktl_strncasecmp("ab", "AB", 0xFFFFFFFFu), 0); }

TEST(ktl_rmtrailingspaces, removes_every_kind_of_trailing_white_space) {
    EXPECT_EQ(Trimmed("name \t"), "name");
    EXPECT_EQ(Trimmed("name \t\n\v\f\r"), "name");
    EXPECT_EQ(Trimmed("a  "), "a");
}

TEST(ktl_rmtrailingspaces, keeps_white_space_inside_and_in_front) {
    EXPECT_EQ(Trimmed("x y "), "x y");
    EXPECT_EQ(Trimmed("  x"), "  x");
}

TEST(ktl_rmtrailingspaces, text_without_trailing_white_space_is_left_alone) { EXPECT_EQ(Trimmed("name"), "name"); }

// The terminator was once written anew; in a literal that ends the process.
TEST(ktl_rmtrailingspaces, a_text_that_stays_as_it_is_may_be_read_only) {
    for (const char *literal : {"name", " ", ""}) {
        _ktl_rmtrailingspaces(const_cast<char *>(literal));
    }
}

TEST(ktl_rmtrailingspaces, null_and_the_empty_string_are_left_alone) {
    _ktl_rmtrailingspaces(nullptr);
    EXPECT_EQ(Trimmed(""), "");
}

TEST(ktl_rmtrailingspaces, the_first_character_is_never_removed_deliberate) {
    EXPECT_EQ(Trimmed(" "), " ");
    EXPECT_EQ(Trimmed("  "), " ");
    EXPECT_EQ(Trimmed("   "), " ");
    EXPECT_EQ(Trimmed("\t  "), "\t");
}

TEST(ktl_getlogin, is_what_libc_answers) { EXPECT_EQ(_ktl_getlogin(), getlogin()); }

TEST(ktl_gethostid, is_the_low_word_of_what_libc_answers) {
    EXPECT_EQ(_ktl_gethostid(), static_cast<uint32_t>(gethostid()));
}

} // namespace
