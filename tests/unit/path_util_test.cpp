// SPDX-License-Identifier: MIT
// The path routines of util.
#include "util/path_util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(ktlIsPathSpec, null_is_no_path) {
    EXPECT_EQ(_ktlIsPathSpec(nullptr, 0), 0);
    EXPECT_EQ(_ktlIsPathSpec(nullptr, 1), 0);
}

TEST(ktlIsPathSpec, absolute_only_asks_for_a_leading_slash) {
    EXPECT_EQ(_ktlIsPathSpec("/usr/bin/x", 1), 1);
    EXPECT_EQ(_ktlIsPathSpec("bin/x", 1), 0);
    EXPECT_EQ(_ktlIsPathSpec("", 1), 0);
}

TEST(ktlIsPathSpec, otherwise_any_slash_makes_a_path) {
    EXPECT_EQ(_ktlIsPathSpec("/usr/bin/x", 0), 1);
    EXPECT_EQ(_ktlIsPathSpec("bin/x", 0), 1);
    EXPECT_EQ(_ktlIsPathSpec("x/", 0), 1);
    EXPECT_EQ(_ktlIsPathSpec("x", 0), 0);
    EXPECT_EQ(_ktlIsPathSpec("", 0), 0);
}

} // namespace
