// SPDX-License-Identifier: MIT
// The index over names, against a plain search.
#include "servd/servd_svc_proc/name_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

// An array of names with its index; the empty name is none.
struct NameIndexTest : testing::Test {
    std::vector<std::string> names;
    NameIndex index = {};

    ~NameIndexTest() override {
        std::free(index.heads);
        std::free(index.places);
    }
    void Put(std::int32_t place, const std::string &name) {
        if (place >= static_cast<std::int32_t>(names.size())) names.resize(static_cast<std::size_t>(place) + 1);
        names[static_cast<std::size_t>(place)] = name;
        if (name.empty()) {
            RemoveName(&index, place);
        } else {
            AddName(&index, place, name.c_str());
        }
    }
    std::int32_t Find(const std::string &name) const {
        return FindName(index, name.c_str(),
                        [&](std::int32_t place) { return names[static_cast<std::size_t>(place)] == name; });
    }
};

TEST_F(NameIndexTest, nothing_is_found_in_an_empty_index) { EXPECT_EQ(Find("a"), -1); }

TEST_F(NameIndexTest, a_name_is_found_at_its_place) {
    Put(5, "a");
    Put(0, "b");
    EXPECT_EQ(Find("a"), 5);
    EXPECT_EQ(Find("b"), 0);
    EXPECT_EQ(Find("c"), -1);
}

TEST_F(NameIndexTest, the_lowest_place_of_a_name_is_found) {
    Put(7, "a");
    Put(2, "a");
    Put(9, "a");
    EXPECT_EQ(Find("a"), 2);
    Put(2, "");
    EXPECT_EQ(Find("a"), 7);
}

TEST_F(NameIndexTest, a_place_takes_a_new_name_instead_of_its_old_one) {
    Put(3, "a");
    Put(3, "b");
    EXPECT_EQ(Find("a"), -1);
    EXPECT_EQ(Find("b"), 3);
}

TEST_F(NameIndexTest, removing_what_is_not_there_does_nothing) {
    RemoveName(&index, 0);
    RemoveName(&index, 1000000);
    Put(1, "a");
    RemoveName(&index, 2);
    RemoveName(&index, 1);
    RemoveName(&index, 1);
    Put(1, "a");
    EXPECT_EQ(Find("a"), 1);
}

TEST_F(NameIndexTest, a_place_far_out_grows_the_index) {
    Put(0, "a");
    Put(100000, "b");
    EXPECT_EQ(Find("a"), 0);
    EXPECT_EQ(Find("b"), 100000);
}

TEST_F(NameIndexTest, random_changes_answer_like_a_plain_search) {
    std::mt19937 random(20261121);
    for (int change = 0; change < 20000; change++) {
        const auto place = static_cast<std::int32_t>(random() % 500);
        Put(place, random() % 3 == 0 ? "" : "n" + std::to_string(random() % 300));
        const std::string name = "n" + std::to_string(random() % 300);
        const auto found = std::find(names.begin(), names.end(), name);
        const auto expected = found == names.end() ? -1 : static_cast<std::int32_t>(found - names.begin());
        ASSERT_EQ(Find(name), expected) << change;
    }
}

} // namespace
