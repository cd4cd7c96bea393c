// SPDX-License-Identifier: MIT
// The path routines of util; those that ask the file system do so in a tree of their own.
#include "util/path_util.h"

#include "tests/support/allocations.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const unsigned unixStyle = TV_UNIX_STYLE_PATH;
const unsigned vmsStyle = TV_VMS_STYLE_PATH;

// A heap string as a string; "null" for null.
std::string Taken(char *text) {
    const std::string copy = text != nullptr ? text : "null";
    free(text);
    return copy;
}

std::string Kept(const char *text) { return text != nullptr ? text : "null"; }

// --- _ktlIsPathSpec

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

// --- _ktlBasename

TEST(ktlBasename, points_behind_the_last_slash) {
    char path[] = "/usr/lib/x";
    EXPECT_EQ(_ktlBasename(path), path + 9);
}

TEST(ktlBasename, is_the_whole_path_without_a_slash) {
    char path[] = "name";
    EXPECT_EQ(_ktlBasename(path), path);
    char empty[] = "";
    EXPECT_EQ(_ktlBasename(empty), empty);
}

TEST(ktlBasename, a_path_that_ends_in_a_slash_gives_the_empty_string_at_its_end) {
    char path[] = "a/b/";
    EXPECT_EQ(_ktlBasename(path), path + 4);
    EXPECT_STREQ(_ktlBasename(path), "");
}

TEST(ktlBasename, null_gives_null) { EXPECT_EQ(_ktlBasename(nullptr), nullptr); }

// --- _ktlDirname

TEST(ktlDirname, is_what_stands_before_the_last_slash) {
    EXPECT_STREQ(_ktlDirname("a/b/c"), "a/b");
    EXPECT_STREQ(_ktlDirname("a/b/"), "a/b");
    EXPECT_STREQ(_ktlDirname("a//b"), "a/");
}

TEST(ktlDirname, the_root_stays) {
    EXPECT_STREQ(_ktlDirname("/x"), "/");
    EXPECT_STREQ(_ktlDirname("/"), "/");
}

TEST(ktlDirname, a_name_without_slash_and_null_give_the_empty_string) {
    EXPECT_STREQ(_ktlDirname("name"), "");
    EXPECT_STREQ(_ktlDirname(""), "");
    EXPECT_STREQ(_ktlDirname(nullptr), "");
}

TEST(ktlDirname, the_second_result_overwrites_the_first_in_the_same_buffer) {
    const char *first = _ktlDirname("first/x");
    const char *second = _ktlDirname("2nd/x");
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "2nd");
}

TEST(ktlDirname, may_be_handed_its_own_result) {
    const char *path = _ktlDirname("/a/b/c/d");
    EXPECT_STREQ(path = _ktlDirname(path), "/a/b");
    EXPECT_STREQ(path = _ktlDirname(path), "/a");
    EXPECT_STREQ(path = _ktlDirname(path), "/");
    EXPECT_STREQ(_ktlDirname(path), "/");
}

TEST(ktlDirname, any_length_fits) {
    const std::string directory(1000000, 'd');
    EXPECT_EQ(_ktlDirname((directory + "/x").c_str()), directory);
}

// --- has_wildcard and validity

TEST(has_wildcard, star_and_question_mark_are_wildcards) {
    EXPECT_EQ(has_wildcard("a*"), 1);
    EXPECT_EQ(has_wildcard("?b"), 1);
    EXPECT_EQ(has_wildcard("[ab]"), 0);
    EXPECT_EQ(has_wildcard("ab"), 0);
}

TEST(has_wildcard, null_and_empty_have_none) {
    EXPECT_EQ(has_wildcard(nullptr), 0);
    EXPECT_EQ(has_wildcard(""), 0);
}

using Validity = int (*)(const char *, int);

struct Valid : ::testing::TestWithParam<Validity> {};

INSTANTIATE_TEST_SUITE_P(names, Valid, ::testing::Values(_ktlValidFilename, _ktlValidPathname),
                         [](const auto &each) { return each.index == 0 ? "ktlValidFilename" : "ktlValidPathname"; });

TEST_P(Valid, null_and_empty_are_not) {
    EXPECT_EQ(GetParam()(nullptr, 1), 0);
    EXPECT_EQ(GetParam()("", 1), 0);
}

TEST_P(Valid, wildcards_only_where_they_are_allowed) {
    EXPECT_EQ(GetParam()("a*", 0), 0);
    EXPECT_EQ(GetParam()("a*", 1), 1);
    EXPECT_EQ(GetParam()("?", 0), 0);
    EXPECT_EQ(GetParam()("?", -1), 1);
}

TEST_P(Valid, brackets_nowhere) {
    EXPECT_EQ(GetParam()("x[1]", 1), 0);
    EXPECT_EQ(GetParam()("[", 0), 0);
    EXPECT_EQ(GetParam()("a]b", 0), 0);
}

TEST_P(Valid, a_colon_anywhere_but_at_the_end) {
    EXPECT_EQ(GetParam()("a:b", 0), 1);
    EXPECT_EQ(GetParam()(":a", 0), 1);
    EXPECT_EQ(GetParam()("ab:", 0), 0);
    EXPECT_EQ(GetParam()(":", 0), 0);
}

TEST_P(Valid, slashes_control_characters_and_any_length_are_fine_deliberate) {
    EXPECT_EQ(GetParam()("a/b", 0), 1);
    EXPECT_EQ(GetParam()("/", 0), 1);
    EXPECT_EQ(GetParam()("\1\n\xff", 0), 1);
    EXPECT_EQ(GetParam()(std::string(100000, 'x').c_str(), 0), 1);
}

// --- GetNextSubPath

std::vector<std::string> SubPathsOf(const char *path) {
    std::vector<std::string> components;
    size_t length = 0;
    while (const char *component = GetNextSubPath(path, &length, &path)) {
        components.emplace_back(component, length);
    }
    EXPECT_EQ(length, 0u);
    return components;
}

TEST(GetNextSubPath, a_relative_path_gives_its_components) {
    EXPECT_THAT(SubPathsOf("a/bc/d"), ElementsAre("a", "bc", "d"));
}

TEST(GetNextSubPath, a_leading_slash_is_a_component) {
    EXPECT_THAT(SubPathsOf("/a"), ElementsAre("/", "a"));
    EXPECT_THAT(SubPathsOf("/"), ElementsAre("/"));
}

TEST(GetNextSubPath, repeated_and_trailing_slashes_count_as_one) {
    EXPECT_THAT(SubPathsOf("///a//b/"), ElementsAre("/", "a", "b"));
}

TEST(GetNextSubPath, dots_are_components) { EXPECT_THAT(SubPathsOf("./../a"), ElementsAre(".", "..", "a")); }

TEST(GetNextSubPath, nothing_is_left_of_null_and_of_the_empty_string) {
    EXPECT_THAT(SubPathsOf(nullptr), IsEmpty());
    EXPECT_THAT(SubPathsOf(""), IsEmpty());
}

TEST(GetNextSubPath, at_the_end_length_and_rest_are_set_all_the_same) {
    for (const char *path : {static_cast<const char *>(nullptr), ""}) {
        size_t length = 7;
        const char *rest = "untouched";
        EXPECT_EQ(GetNextSubPath(path, &length, &rest), nullptr);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(rest, path);
    }
}

// --- _ktlGetComponentsOffsetFromPath

TEST(ktlGetComponentsOffsetFromPath, is_where_the_last_component_begins) {
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath("a/b/c"), 4u);
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath("/x"), 1u);
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath("a/"), 2u);
}

TEST(ktlGetComponentsOffsetFromPath, is_0_without_a_slash) {
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath("name"), 0u);
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath(""), 0u);
    EXPECT_EQ(_ktlGetComponentsOffsetFromPath(nullptr), 0u);
}

// --- _ktlGetComponentsFromPath

std::vector<std::string> ComponentsOf(const char *path, unsigned style) {
    std::vector<std::string> components;
    for (const char *name : {"dev", "dir", "name", "type", "version"}) {
        components.push_back(Taken(_ktlGetComponentsFromPath(path, style, name)));
    }
    return components;
}

TEST(ktlGetComponentsFromPath, unix_paths_have_directory_name_and_type) {
    EXPECT_THAT(ComponentsOf("/usr/lib/libc.so.6", unixStyle), ElementsAre("", "/usr/lib", "libc.so", ".6", ""));
    EXPECT_THAT(ComponentsOf("/x", unixStyle), ElementsAre("", "/", "x", "", ""));
    EXPECT_THAT(ComponentsOf("x.c", unixStyle), ElementsAre("", "", "x", ".c", ""));
    EXPECT_THAT(ComponentsOf("a.d/x", unixStyle), ElementsAre("", "a.d", "x", "", ""));
    EXPECT_THAT(ComponentsOf("a/", unixStyle), ElementsAre("", "a", "", "", ""));
    EXPECT_THAT(ComponentsOf("", unixStyle), ElementsAre("", "", "", "", ""));
}

TEST(ktlGetComponentsFromPath, a_dot_that_begins_the_name_belongs_to_it) {
    EXPECT_THAT(ComponentsOf("~/.profile", unixStyle), ElementsAre("", "~", ".profile", "", ""));
    EXPECT_THAT(ComponentsOf(".a.b", unixStyle), ElementsAre("", "", ".a", ".b", ""));
    EXPECT_THAT(ComponentsOf(".", unixStyle), ElementsAre("", "", ".", "", ""));
    EXPECT_THAT(ComponentsOf("x.", unixStyle), ElementsAre("", "", "x", ".", ""));
}

TEST(ktlGetComponentsFromPath, vms_paths_have_five_components) {
    EXPECT_THAT(ComponentsOf("DKA0:[SYS.BIN]EDIT.EXE;3", vmsStyle),
                ElementsAre("DKA0", "[SYS.BIN]", "EDIT", ".EXE", "3"));
    EXPECT_THAT(ComponentsOf("[A]X", vmsStyle), ElementsAre("", "[A]", "X", "", ""));
    EXPECT_THAT(ComponentsOf("[]X", vmsStyle), ElementsAre("", "[]", "X", "", ""));
    EXPECT_THAT(ComponentsOf("D:X.Y", vmsStyle), ElementsAre("D", "", "X", ".Y", ""));
    EXPECT_THAT(ComponentsOf("X;1", vmsStyle), ElementsAre("", "", "X", "", "1"));
    EXPECT_THAT(ComponentsOf("[A", vmsStyle), ElementsAre("", "", "[A", "", ""));
    EXPECT_THAT(ComponentsOf("", vmsStyle), ElementsAre("", "", "", "", ""));
}

TEST(ktlGetComponentsFromPath, versions_take_their_shortest_form) {
    const auto versionOf = [](const char *path) { return Taken(_ktlGetComponentsFromPath(path, vmsStyle, "version")); };
    EXPECT_EQ(versionOf("X;007"), "7");
    EXPECT_EQ(versionOf("X;-1"), "-1");
    EXPECT_EQ(versionOf("X;12ab"), "12");
    EXPECT_EQ(versionOf("X;"), "");
    EXPECT_EQ(versionOf("X;ab"), "");
    EXPECT_EQ(versionOf("X;99999999999999999999999999"), std::to_string(LONG_MAX));
}

TEST(ktlGetComponentsFromPath, undecided_styles_look_at_the_path) {
    for (const unsigned style : {TV_MIXED_STYLE_PATH, TV_NOTSURE_STYLE_PATH}) {
        EXPECT_EQ(Taken(_ktlGetComponentsFromPath("[A]X", style, "dir")), "[A]");
        EXPECT_EQ(Taken(_ktlGetComponentsFromPath("a/x", style, "dir")), "a");
        EXPECT_EQ(Taken(_ktlGetComponentsFromPath("X;2", style, "version")), "2");
    }
    EXPECT_EQ(Taken(_ktlGetComponentsFromPath("X;2", unixStyle, "name")), "X;2");
}

TEST(ktlGetComponentsFromPath, component_names_are_known_in_any_case) {
    EXPECT_EQ(Taken(_ktlGetComponentsFromPath("a/x", unixStyle, "DIR")), "a");
    EXPECT_EQ(Taken(_ktlGetComponentsFromPath("a/x", unixStyle, "Name")), "x");
}

TEST(ktlGetComponentsFromPath, unknown_components_and_styles_and_null_give_null) {
    EXPECT_EQ(_ktlGetComponentsFromPath("a/x", unixStyle, "directory"), nullptr);
    EXPECT_EQ(_ktlGetComponentsFromPath("a/x", unixStyle, ""), nullptr);
    EXPECT_EQ(_ktlGetComponentsFromPath("a/x", 0, "dir"), nullptr);
    EXPECT_EQ(_ktlGetComponentsFromPath("a/x", 5, "dir"), nullptr);
    EXPECT_EQ(_ktlGetComponentsFromPath(nullptr, unixStyle, "dir"), nullptr);
    EXPECT_EQ(_ktlGetComponentsFromPath("a/x", unixStyle, nullptr), nullptr);
}

TEST(ktlGetComponentsFromPathW, is_always_0) {
    const unsigned short path[] = {'a', '/', 'b', 0};
    EXPECT_EQ(_ktlGetComponentsFromPathW(path, unixStyle, path), 0);
    EXPECT_EQ(_ktlGetComponentsFromPathW(nullptr, 0, nullptr), 0);
}

// --- _ktlCreatePathFromComponents

std::string Created(const char *directory, const char *name, unsigned style = unixStyle) {
    return Taken(_ktlCreatePathFromComponents(directory, name, style));
}

TEST(ktlCreatePathFromComponents, puts_one_slash_between) {
    EXPECT_EQ(Created("/usr/bin", "x"), "/usr/bin/x");
    EXPECT_EQ(Created("/usr/bin/", "x"), "/usr/bin/x");
    EXPECT_EQ(Created("/", "x"), "/x");
    EXPECT_EQ(Created("a", ""), "a/");
}

TEST(ktlCreatePathFromComponents, no_directory_is_the_current_one) {
    EXPECT_EQ(Created("", "x"), "./x");
    EXPECT_EQ(Created(nullptr, "x"), "./x");
}

TEST(ktlCreatePathFromComponents, vms_parts_stand_side_by_side) {
    EXPECT_EQ(Created("D:[A]", "X.Y;1", vmsStyle), "D:[A]X.Y;1");
    EXPECT_EQ(Created("", "X", vmsStyle), "X");
    EXPECT_EQ(Created(nullptr, "", vmsStyle), "");
}

TEST(ktlCreatePathFromComponents, an_unknown_style_and_a_null_name_give_null) {
    EXPECT_EQ(Created("a", "b", 0), "null");
    EXPECT_EQ(Created("a", "b", 5), "null");
    EXPECT_EQ(Created("a", nullptr), "null");
}

TEST(ktlCreatePathFromComponents, any_length_fits) {
    const std::string part(500000, 'p');
    EXPECT_EQ(Created(part.c_str(), part.c_str()), part + "/" + part);
}

// --- _ktlExpandEnvVarIfAny

struct ktlExpandEnvVarIfAny : ::testing::Test {
    void SetUp() override {
        setenv("TV_A", "alpha", 1);
        setenv("TV_NESTED", "$TV_A", 1);
        setenv("TV_EMPTY", "", 1);
        unsetenv("TV_UNSET");
    }

    static std::string Expanded(const std::string &path) { return Taken(_ktlExpandEnvVarIfAny(path.c_str())); }
};

TEST_F(ktlExpandEnvVarIfAny, references_become_values) {
    EXPECT_EQ(Expanded("/x/$TV_A/y"), "/x/alpha/y");
    EXPECT_EQ(Expanded("${TV_A}s"), "alphas");
    EXPECT_EQ(Expanded("$TV_A$TV_A"), "alphaalpha");
}

TEST_F(ktlExpandEnvVarIfAny, a_reference_at_the_end) {
    EXPECT_EQ(Expanded("/x/$TV_A"), "/x/alpha");
    EXPECT_EQ(Expanded("/x/${TV_A}"), "/x/alpha");
}

TEST_F(ktlExpandEnvVarIfAny, a_path_without_references_is_copied) {
    EXPECT_EQ(Expanded("/usr/bin"), "/usr/bin");
    EXPECT_EQ(Expanded(""), "");
}

TEST_F(ktlExpandEnvVarIfAny, a_variable_that_is_not_set_stays_as_it_stands) {
    EXPECT_EQ(Expanded("/$TV_UNSET/x"), "/$TV_UNSET/x");
    EXPECT_EQ(Expanded("${TV_UNSET}"), "${TV_UNSET}");
}

TEST_F(ktlExpandEnvVarIfAny, an_empty_value_leaves_nothing) { EXPECT_EQ(Expanded("a${TV_EMPTY}b"), "ab"); }

TEST_F(ktlExpandEnvVarIfAny, values_are_not_expanded_again) { EXPECT_EQ(Expanded("$TV_NESTED"), "$TV_A"); }

TEST_F(ktlExpandEnvVarIfAny, a_reference_inside_a_reference_is_the_only_one) {
    EXPECT_EQ(Expanded("${TV_${TV_A}}"), "${TV_alpha}");
    EXPECT_EQ(Expanded("$$TV_A"), "$alpha");
}

TEST_F(ktlExpandEnvVarIfAny, what_is_no_reference_stays_as_it_stands) {
    for (const char *path : {"$", "a$", "$/", "${", "${}", "${TV_A", "$1", "${TV-A}", "$ TV_A", "${ TV_A}"}) {
        EXPECT_EQ(Expanded(path), path);
    }
}

TEST_F(ktlExpandEnvVarIfAny, a_name_may_be_a_single_letter) {
    setenv("T", "tee", 1);
    EXPECT_EQ(Expanded("$T/${T}"), "tee/tee");
    unsetenv("T");
}

TEST_F(ktlExpandEnvVarIfAny, the_longest_name_counts) {
    EXPECT_EQ(Expanded("$TV_AB"), "$TV_AB");
    EXPECT_EQ(Expanded("$TV_A.b"), "alpha.b");
    EXPECT_EQ(Expanded("$TV_A-b"), "alpha-b");
}

TEST_F(ktlExpandEnvVarIfAny, a_million_references_are_expanded) {
    std::string path;
    for (int i = 0; i < 1000000; ++i) {
        path += "$TV_A";
    }
    EXPECT_EQ(Expanded(path).size(), 5000000u);
}

TEST_F(ktlExpandEnvVarIfAny, null_gives_null) { EXPECT_EQ(_ktlExpandEnvVarIfAny(nullptr), nullptr); }

// --- in a tree of its own

// The current directory is the tree's root during each case; it must still be when a case ends.
struct InTree : ::testing::Test {
    fs::path start = fs::current_path();
    fs::path root;

    void SetUp() override {
        std::string pattern = (fs::canonical(fs::temp_directory_path()) / "path_util.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root = pattern;
        fs::create_directories(root / "Alpha/Beta");
        fs::create_directories(root / "alpha");
        fs::create_directories(root / "Other");
        for (const char *file : {"Alpha/Beta/File.Txt", "alpha/lower", "Other/Tool", "Other/tool", "Other/OnlyUpper"}) {
            std::ofstream(root / file) << file;
        }
        fs::current_path(root);
    }

    void TearDown() override {
        EXPECT_TRUE(fs::equivalent(".", root)) << "the current directory has changed";
        fs::current_path(start);
        fs::remove_all(root);
    }

    std::string InRoot(const std::string &path) const { return root.string() + "/" + path; }
};

// --- _ktlFullpath

struct ktlFullpath : InTree {};

TEST_F(ktlFullpath, an_absolute_path_stays) { EXPECT_EQ(Kept(_ktlFullpath("/usr/bin/x")), "/usr/bin/x"); }

TEST_F(ktlFullpath, a_relative_path_stands_behind_the_current_directory) {
    EXPECT_EQ(Kept(_ktlFullpath("x/y")), InRoot("x/y"));
    EXPECT_EQ(Kept(_ktlFullpath("./x")), InRoot("x"));
    EXPECT_EQ(Kept(_ktlFullpath(".")), root);
    EXPECT_EQ(Kept(_ktlFullpath("..")), root.parent_path());
}

TEST_F(ktlFullpath, dots_are_folded) {
    EXPECT_EQ(Kept(_ktlFullpath("/a/./b/../c")), "/a/c");
    EXPECT_EQ(Kept(_ktlFullpath("/a/b/../../c/.")), "/c");
    EXPECT_EQ(Kept(_ktlFullpath("/a/...")), "/a/...");
    EXPECT_EQ(Kept(_ktlFullpath("/a/..b/.c")), "/a/..b/.c");
}

TEST_F(ktlFullpath, above_the_root_is_the_root) {
    EXPECT_EQ(Kept(_ktlFullpath("/..")), "/");
    EXPECT_EQ(Kept(_ktlFullpath("/a/../../../b")), "/b");
    EXPECT_EQ(Kept(_ktlFullpath("../../../../../../../../../../../..")), "/");
}

TEST_F(ktlFullpath, repeated_and_trailing_slashes_are_folded) {
    EXPECT_EQ(Kept(_ktlFullpath("//a///b//")), "/a/b");
    EXPECT_EQ(Kept(_ktlFullpath("///")), "/");
}

TEST_F(ktlFullpath, white_space_around_the_path_is_dropped) {
    EXPECT_EQ(Kept(_ktlFullpath(" \t/a b/c \n")), "/a b/c");
    EXPECT_EQ(Kept(_ktlFullpath(" x")), InRoot("x"));
}

TEST_F(ktlFullpath, null_empty_and_blank_give_null) {
    EXPECT_EQ(_ktlFullpath(nullptr), nullptr);
    EXPECT_EQ(_ktlFullpath(""), nullptr);
    EXPECT_EQ(_ktlFullpath(" \t "), nullptr);
}

TEST_F(ktlFullpath, may_be_handed_its_own_result) {
    const char *path = _ktlFullpath("/a/b");
    EXPECT_EQ(Kept(_ktlFullpath(path)), "/a/b");
}

TEST_F(ktlFullpath, any_length_fits) {
    const std::string name(1000000, 'n');
    EXPECT_EQ(Kept(_ktlFullpath(name.c_str())), InRoot(name));
    std::string up = "/a";
    for (int i = 0; i < 100000; ++i) {
        up += "/b/..";
    }
    EXPECT_EQ(Kept(_ktlFullpath(up.c_str())), "/a");
}

TEST_F(ktlFullpath, a_current_directory_without_a_name_gives_null_for_relative_paths_only) {
    ASSERT_EQ(mkdir("gone", 0700), 0);
    ASSERT_EQ(chdir("gone"), 0);
    ASSERT_EQ(rmdir(InRoot("gone").c_str()), 0);
    EXPECT_EQ(_ktlFullpath("x"), nullptr);
    EXPECT_EQ(Kept(_ktlFullpath("/x")), "/x");
    fs::current_path(root);
}

// --- _ktlConvertPathCase

struct ktlConvertPathCase : InTree {};

TEST_F(ktlConvertPathCase, finds_the_spelling_of_each_component) {
    EXPECT_EQ(Kept(_ktlConvertPathCase("Alpha/BETA/FILE.TXT")), "Alpha/Beta/File.Txt");
    EXPECT_EQ(Kept(_ktlConvertPathCase("OTHER/onlyupper")), "Other/OnlyUpper");
}

TEST_F(ktlConvertPathCase, an_equal_entry_goes_before_one_of_another_case) {
    EXPECT_EQ(Kept(_ktlConvertPathCase("alpha/LOWER")), "alpha/lower");
    EXPECT_EQ(Kept(_ktlConvertPathCase("other/Tool")), "Other/Tool");
    EXPECT_EQ(Kept(_ktlConvertPathCase("other/tool")), "Other/tool");
}

TEST_F(ktlConvertPathCase, does_not_go_back_when_a_later_component_is_missing) {
    EXPECT_EQ(_ktlConvertPathCase("alpha/beta"), nullptr);
}

TEST_F(ktlConvertPathCase, an_absolute_path_stays_absolute) {
    EXPECT_EQ(Kept(_ktlConvertPathCase(InRoot("other/TOOL").c_str())).size(), InRoot("Other/Tool").size());
    EXPECT_EQ(Kept(_ktlConvertPathCase(InRoot("other/onlyUPPER").c_str())), InRoot("Other/OnlyUpper"));
    EXPECT_EQ(Kept(_ktlConvertPathCase("/")), "/");
}

TEST_F(ktlConvertPathCase, dots_and_slashes) {
    EXPECT_EQ(Kept(_ktlConvertPathCase("./other//ONLYUPPER")), "./Other/OnlyUpper");
    EXPECT_EQ(Kept(_ktlConvertPathCase("other/../Alpha/beta/")), "Other/../Alpha/Beta");
    EXPECT_EQ(Kept(_ktlConvertPathCase(".")), ".");
}

TEST_F(ktlConvertPathCase, a_missing_component_gives_null) {
    EXPECT_EQ(_ktlConvertPathCase("Other/Missing"), nullptr);
    EXPECT_EQ(_ktlConvertPathCase("Missing/Tool"), nullptr);
    EXPECT_EQ(_ktlConvertPathCase(InRoot("Other/OnlyUppe").c_str()), nullptr);
}

TEST_F(ktlConvertPathCase, an_entry_of_the_same_length_is_not_enough) {
    EXPECT_EQ(_ktlConvertPathCase("Other/Toll"), nullptr);
}

TEST_F(ktlConvertPathCase, a_file_on_the_way_gives_null) { EXPECT_EQ(_ktlConvertPathCase("Other/Tool/x"), nullptr); }

TEST_F(ktlConvertPathCase, null_and_empty_give_null) {
    EXPECT_EQ(_ktlConvertPathCase(nullptr), nullptr);
    EXPECT_EQ(_ktlConvertPathCase(""), nullptr);
}

TEST_F(ktlConvertPathCase, may_be_handed_its_own_result) {
    const char *path = _ktlConvertPathCase("other/onlyupper");
    EXPECT_EQ(Kept(_ktlConvertPathCase(path)), "Other/OnlyUpper");
}

// Root may enter and read every directory: the walk is made by an ordinary user.
TEST_F(ktlConvertPathCase, a_directory_that_cannot_be_entered_or_read_gives_null) {
    const uid_t self = geteuid();
    const uid_t walker = self == 0 ? 65534 : self;
    ASSERT_EQ(chmod(root.c_str(), 0755), 0);
    ASSERT_EQ(chown("Other", walker, static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(seteuid(walker), 0);
    for (const mode_t mode : {0600u, 0300u}) {
        EXPECT_EQ(chmod("Other", mode), 0);
        EXPECT_EQ(_ktlConvertPathCase("other/ONLYUPPER"), nullptr) << "mode " << std::oct << mode;
    }
    EXPECT_EQ(chmod("Other", 0700), 0);
    EXPECT_EQ(Kept(_ktlConvertPathCase("other/ONLYUPPER")), "Other/OnlyUpper");
    ASSERT_EQ(seteuid(self), 0);
}

TEST_F(ktlConvertPathCase, returns_to_a_current_directory_that_has_lost_its_name) {
    ASSERT_EQ(mkdir("gone", 0700), 0);
    ASSERT_EQ(chdir("gone"), 0);
    ASSERT_EQ(rmdir(InRoot("gone").c_str()), 0);
    struct stat before = {}, after = {};
    ASSERT_EQ(stat(".", &before), 0);
    EXPECT_EQ(Kept(_ktlConvertPathCase(InRoot("OTHER").c_str())), InRoot("Other"));
    ASSERT_EQ(stat(".", &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    fs::current_path(root);
}

TEST_F(ktlConvertPathCase, returns_when_no_descriptor_is_free) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(_ktlConvertPathCase("/x"), nullptr); // enters "/", and cannot read it
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(ktlConvertPathCase, leaves_no_descriptor_open) {
    const auto nextDescriptor = [] {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(descriptor);
        return descriptor;
    };
    const int before = nextDescriptor();
    for (const char *path : {"other/onlyupper", "/", "Other/Missing", "Other/Tool/x"}) {
        (void)_ktlConvertPathCase(path);
    }
    EXPECT_EQ(nextDescriptor(), before);
}

TEST_F(ktlConvertPathCase, returns_from_and_to_paths_longer_than_the_system_takes) {
    const std::string name(250, 'D');
    const std::string other(250, 'd');
    std::string path, spelled;
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
        path += (i > 0 ? "/" : "") + other;
        spelled += (i > 0 ? "/" : "") + name;
    }
    std::ofstream("leaf") << "leaf";

    // From down there, whose name no chdir takes.
    struct stat before = {}, after = {};
    ASSERT_EQ(stat(".", &before), 0);
    EXPECT_EQ(Kept(_ktlConvertPathCase(InRoot("OTHER").c_str())), InRoot("Other"));
    EXPECT_EQ(Kept(_ktlConvertPathCase("LEAF")), "leaf");
    EXPECT_EQ(Kept(_ktlFullpath("leaf")), InRoot(spelled + "/leaf"));
    ASSERT_EQ(stat(".", &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);

    // From the top, all the way down.
    fs::current_path(root);
    EXPECT_EQ(Kept(_ktlConvertPathCase((path + "/LEAF").c_str())), spelled + "/leaf");
}

// --- _ktlSearchenv and _ktlCaseSearchenv

struct ktlSearchenv : InTree {
    static std::string Found(const char *name, int ignoreCase = 0) {
        return Kept(_ktlCaseSearchenv(name, "TV_LIST", unixStyle, ignoreCase));
    }
};

TEST_F(ktlSearchenv, the_first_directory_that_has_the_name_wins) {
    setenv("TV_LIST", "missing:alpha:Other:Alpha/Beta", 1);
    EXPECT_EQ(Found("tool"), InRoot("Other/tool"));
    EXPECT_EQ(Found("lower"), InRoot("alpha/lower"));
    EXPECT_EQ(Found("File.Txt"), InRoot("Alpha/Beta/File.Txt"));
    std::ofstream("alpha/tool") << "first";
    EXPECT_EQ(Found("tool"), InRoot("alpha/tool"));
}

TEST_F(ktlSearchenv, is_the_search_that_regards_case) {
    setenv("TV_LIST", "Other", 1);
    EXPECT_EQ(Kept(_ktlSearchenv("Tool", "TV_LIST", unixStyle)), InRoot("Other/Tool"));
    EXPECT_EQ(_ktlSearchenv("onlyupper", "TV_LIST", unixStyle), nullptr);
}

TEST_F(ktlSearchenv, without_regard_to_case_the_spelling_found_is_returned) {
    setenv("TV_LIST", "missing:OTHER", 1);
    EXPECT_EQ(Found("ONLYUPPER", 0), "null");
    EXPECT_EQ(Found("ONLYUPPER", 1), InRoot("Other/OnlyUpper"));
    EXPECT_EQ(Found("tool", 1), InRoot("Other/tool"));
}

TEST_F(ktlSearchenv, absolute_directories_and_the_root) {
    setenv("TV_LIST", (InRoot("Other") + ":/").c_str(), 1);
    EXPECT_EQ(Found("Tool"), InRoot("Other/Tool"));
    EXPECT_EQ(Found("usr"), "/usr");
}

TEST_F(ktlSearchenv, empty_directories_are_skipped) {
    std::ofstream("here") << "here";
    setenv("TV_LIST", ":Other::alpha:", 1);
    EXPECT_EQ(Found("here"), "null");
    EXPECT_EQ(Found("lower"), InRoot("alpha/lower"));
    setenv("TV_LIST", ".", 1);
    EXPECT_EQ(Found("here"), InRoot("here"));
}

TEST_F(ktlSearchenv, a_name_with_a_slash_is_looked_for_as_it_stands) {
    setenv("TV_LIST", "Other", 1);
    EXPECT_EQ(Found("./Tool"), "null");
    EXPECT_EQ(Found("Other/Tool"), InRoot("Other/Tool"));
    EXPECT_EQ(Found("Other/../alpha/lower"), InRoot("alpha/lower"));
    EXPECT_EQ(Found("other/onlyupper"), "null");
    EXPECT_EQ(Found("other/onlyupper", 1), InRoot("Other/OnlyUpper"));
    EXPECT_EQ(Found(InRoot("Other/Tool").c_str()), InRoot("Other/Tool"));
}

TEST_F(ktlSearchenv, the_variable_is_left_as_it_is) {
    setenv("TV_LIST", "missing:alpha:Other", 1);
    EXPECT_EQ(Found("Tool"), InRoot("Other/Tool"));
    EXPECT_STREQ(getenv("TV_LIST"), "missing:alpha:Other");
}

TEST_F(ktlSearchenv, a_variable_that_is_not_set_or_empty_finds_nothing) {
    unsetenv("TV_LIST");
    EXPECT_EQ(Found("Tool"), "null");
    setenv("TV_LIST", "", 1);
    EXPECT_EQ(Found("Tool"), "null");
}

TEST_F(ktlSearchenv, wrong_arguments_give_null) {
    setenv("TV_LIST", "Other", 1);
    EXPECT_EQ(_ktlSearchenv(nullptr, "TV_LIST", unixStyle), nullptr);
    EXPECT_EQ(_ktlSearchenv("", "TV_LIST", unixStyle), nullptr);
    EXPECT_EQ(_ktlSearchenv("Tool", nullptr, unixStyle), nullptr);
    EXPECT_EQ(_ktlSearchenv("Tool", "TV_LIST", vmsStyle), nullptr);
    EXPECT_EQ(_ktlSearchenv("Tool", "TV_LIST", 0), nullptr);
    EXPECT_NE(_ktlSearchenv("Tool", "TV_LIST", TV_MIXED_STYLE_PATH), nullptr);
    EXPECT_NE(_ktlSearchenv("Tool", "TV_LIST", TV_NOTSURE_STYLE_PATH), nullptr);
}

TEST_F(ktlSearchenv, lists_and_names_of_any_length) {
    std::string list;
    for (int i = 0; i < 20000; ++i) {
        list += "missing" + std::to_string(i) + ":";
    }
    setenv("TV_LIST", (list + std::string(100000, 'x') + ":Other").c_str(), 1);
    EXPECT_EQ(Found("Tool"), InRoot("Other/Tool"));
    EXPECT_EQ(Found(std::string(100000, 'n').c_str()), "null");
    EXPECT_EQ(Found(std::string(100000, 'n').c_str(), 1), "null");
}

TEST_F(ktlSearchenv, may_be_handed_its_own_result) {
    setenv("TV_LIST", "Other", 1);
    const char *path = _ktlSearchenv("Tool", "TV_LIST", unixStyle);
    EXPECT_EQ(Kept(_ktlSearchenv(path, "TV_LIST", unixStyle)), InRoot("Other/Tool"));
}

// --- without memory

// Refuses each allocation of a call in turn: the call answers null. What it loses then is for the leak checker to tell.
template <typename Call>
void ExpectNullWithoutMemory(Call call) {
    StartCounting();
    const bool works = call();
    const long requests = StopCounting().requests;
    ASSERT_TRUE(works);
    ASSERT_GT(requests, 0);
    for (long failing = 1; failing <= requests; ++failing) {
        StartCounting(failing);
        const bool worked = call();
        (void)StopCounting();
        EXPECT_FALSE(worked) << "allocation " << failing << " of " << requests;
    }
}

bool Works(char *heapString) {
    free(heapString);
    return heapString != nullptr;
}

struct WithoutMemory : InTree {};

TEST_F(WithoutMemory, heap_strings_are_null) {
    setenv("TV_A", "alpha", 1);
    ExpectNullWithoutMemory([] { return Works(_ktlExpandEnvVarIfAny("a$TV_A/${TV_A}$")); });
    ExpectNullWithoutMemory([] { return Works(_ktlCreatePathFromComponents("a", std::string(99, 'n').c_str(), 1)); });
    ExpectNullWithoutMemory([] { return Works(_ktlGetComponentsFromPath("[A]B;1", 2, "dir")); });
    ExpectNullWithoutMemory([] { return Works(_ktlGetComponentsFromPath("[A]B;1", 2, "version")); });
}

TEST_F(WithoutMemory, full_paths_are_null) {
    ExpectNullWithoutMemory([] { return _ktlFullpath("some/relative/path/of/some/length") != nullptr; });
}

TEST_F(WithoutMemory, spellings_are_null_and_the_current_directory_stays) {
    ExpectNullWithoutMemory([] { return _ktlConvertPathCase("OTHER/OnlyUpper") != nullptr; });
}

TEST_F(WithoutMemory, searches_find_nothing) {
    setenv("TV_LIST", "missing:Other", 1);
    ExpectNullWithoutMemory([] { return _ktlSearchenv("Tool", "TV_LIST", 1) != nullptr; });
}

} // namespace
