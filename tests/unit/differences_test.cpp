// SPDX-License-Identifier: MIT
// Two trees of keys held against each other, and what makes one the other.
#include "tvreg/differences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::IsEmpty;

namespace {

std::vector<RegKey> Keys(const std::string &lines) {
    std::vector<RegKey> keys;
    EXPECT_THAT(ReadRegText("REGEDIT4\n" + lines, &keys), IsEmpty());
    return keys;
}

KeyTree Tree(const std::string &lines) { return {{HKEY_LOCAL_MACHINE, "k"}, StateOf(Keys(lines))}; }

// The state of a tree, as text.
std::string Text(const std::vector<RegKey> &keys) {
    std::string text, culprit;
    EXPECT_TRUE(WriteRegText(keys, RegDialect::regedit4, &text, &culprit));
    return text;
}

std::string Kinds(const std::vector<Difference> &differences) {
    std::string kinds;
    for (const Difference &difference : differences) {
        kinds += difference.path + (IsOfKey(difference) ? difference.isBefore ? "-k " : "+k "
                                    : difference.before ? difference.after ? "*" : "-"
                                                        : "+");
        if (!IsOfKey(difference)) kinds += (difference.before ? difference.before : difference.after)->name + " ";
    }
    return kinds;
}

} // namespace

TEST(CompareTrees, keys_and_values_of_either_side_and_of_both) {
    const KeyTree before =
        Tree("[HKLM\\k]\n\"same\"=\"x\"\n\"gone\"=\"x\"\n\"data\"=\"x\"\n\"type\"=hex(2):78,00\n[HKLM\\k\\old]\n"
             "\"v\"=\"x\"\n[HKLM\\k\\both]\n");
    const KeyTree after = Tree(
        "[HKLM\\k]\n\"type\"=\"x\"\n\"data\"=\"y\"\n\"SAME\"=\"x\"\n\"new\"=\"x\"\n[HKLM\\k\\BOTH]\n[HKLM\\k\\new]\n");
    EXPECT_EQ(Kinds(CompareTrees(before, after)), "-gone *data *type +new old-k old-v new+k ");
    EXPECT_THAT(CompareTrees(before, before), IsEmpty());
    EXPECT_EQ(CompareTrees(before, before, true).size(), 8u); // three keys and five values
}

TEST(CompareTrees, names_are_the_same_where_the_registry_takes_them_for_the_same) {
    const KeyTree before = Tree("[HKLM\\k\\\xC3\x84rger]\n\"\xCE\xA3\"=\"x\"\n");                 // Ä, Σ
    const KeyTree after = Tree("[HKLM\\k\\\xC3\xA4rger]\n\"\xCF\x83\"=\"x\"\n[HKLM\\k\\\xE4]\n"); // ä, σ
    EXPECT_EQ(Kinds(CompareTrees(before, after)), "\xE4+k ");
    EXPECT_EQ(StateOf(Keys("[HKLM\\\xC3\x84\\x]\n[-HKLM\\\xC3\xA4]\n")).size(), 0u);
}

TEST(CompareTrees, tops_may_lie_anywhere) {
    const KeyTree here = Tree("[HKLM\\k]\n[HKLM\\k\\a]\n\"v\"=\"x\"\n");
    const KeyTree there = {{HKEY_USERS, "some\\where"},
                           Keys("[HKU\\some\\where]\n[HKU\\some\\where\\a]\n\"v\"=\"y\"\n")};
    EXPECT_EQ(Kinds(CompareTrees(here, there)), "a*v ");
}

TEST(ChangesOf, make_one_tree_the_other) {
    const KeyTree trees[] = {
        Tree("[HKLM\\k]\n"),
        Tree("[HKLM\\k]\n\"a\"=\"x\"\n[HKLM\\k\\s]\n\"b\"=dword:1\n[HKLM\\k\\s\\t]\n\"c\"=\"x\"\n"),
        Tree("[HKLM\\k]\n\"a\"=\"y\"\n[HKLM\\k\\u]\n\"b\"=dword:1\n"),
        Tree("[HKLM\\k]\n[HKLM\\k\\s]\n[HKLM\\k\\s\\t]\n[HKLM\\k\\st]\n\"c\"=-\n"),
    };
    for (const KeyTree &from : trees) {
        for (const KeyTree &to : trees) {
            std::vector<RegKey> written = from.keys;
            for (const RegKey &change : ChangesOf(CompareTrees(from, to), from.top)) {
                written.push_back(change);
            }
            const KeyTree made = {from.top, StateOf(written)};
            EXPECT_THAT(CompareTrees(made, {to.top, StateOf(to.keys)}), IsEmpty()) << Text(from.keys) << Text(to.keys);
        }
    }
}

TEST(StateOf, what_a_file_comes_to) {
    EXPECT_EQ(Text(StateOf(Keys("[HKLM\\a]\n\"v\"=\"1\"\n\"w\"=\"1\"\n[HKLM\\a\\b]\n[HKLM\\ab]\n[-HKLM\\A]\n[HKLM\\a]\n"
                                "\"v\"=\"2\"\n\"V\"=\"3\"\n\"x\"=\"1\"\n\"x\"=-\n"))),
              "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\ab]\n\n[HKEY_LOCAL_MACHINE\\a]\n\"V\"=\"3\"\n");
}
