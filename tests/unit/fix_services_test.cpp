// SPDX-License-Identifier: MIT
// Service keys of a Win32 registry, and what is made of them.
#include "tvreg/fix_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Fixed {
    std::vector<RegKey> keys;
    std::vector<std::string> remarks;
};

const std::string common = "\"Type\"=dword:10\n\"DisplayName\"=\"Web\"\n";
const std::string webKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Web";

Fixed Fix(const std::string &values, const std::string &key = webKey) {
    Fixed fixed;
    EXPECT_TRUE(ReadRegText("REGEDIT4\n[" + key + "]\n" + common + values, &fixed.keys).empty());
    fixed.remarks = FixServices(&fixed.keys);
    return fixed;
}

// The data of a value; the text "none" when it is not there.
std::string DataOf(const Fixed &fixed, const std::string &name) {
    for (const RegValue &value : fixed.keys.front().values) {
        if (value.name == name) return value.data;
    }
    return "none";
}

// "a", "b" as several strings
constexpr char aAndB[] = "hex(7):61,00,62,00,00\n";

} // namespace

TEST(FixServices, services_that_are_needed_go_to_the_groups_that_get_their_sign) {
    const Fixed fixed = Fix(std::string("\"DependOnGroup\"=hex(7):67,00,2b,68,00,00\n\"DependOnService\"=") + aAndB);
    EXPECT_EQ(DataOf(fixed, "DependOnGroup"), std::string("a\0b\0+g\0+h\0\0", 11));
    EXPECT_EQ(DataOf(fixed, "DependOnService"), "none");
    EXPECT_THAT(fixed.remarks,
                ElementsAre("~ Web: DependOnService, several strings -> DependOnGroup \"a\", \"b\", \"+g\", \"+h\""));
}

TEST(FixServices, an_empty_list_leaves_nothing) {
    const Fixed fixed = Fix("\"DependOnService\"=hex(7):00\n");
    EXPECT_EQ(DataOf(fixed, "DependOnGroup"), "none");
    EXPECT_EQ(DataOf(fixed, "DependOnService"), "none");
}

TEST(FixServices, accounts_become_unix_users) {
    EXPECT_EQ(DataOf(Fix("\"ObjectName\"=\"LocalSystem\"\n"), "DependOnService"), "none");
    EXPECT_EQ(DataOf(Fix("\"ObjectName\"=\"NT AUTHORITY\\\\NetworkService\"\n"), "DependOnService"),
              std::string("nobody\0", 7));
    EXPECT_EQ(DataOf(Fix("\"ObjectName\"=\".\\\\web\"\n"), "DependOnService"), std::string("web\0", 4));
    const Fixed fixed = Fix("\"OBJECTNAME\"=\"web\"\n");
    EXPECT_EQ(DataOf(fixed, "DependOnService"), std::string("web\0", 4));
    EXPECT_EQ(DataOf(fixed, "OBJECTNAME"), "none");
    EXPECT_THAT(fixed.remarks, ElementsAre("~ Web: ObjectName \"web\" -> the Unix user web, in DependOnService"));
}

TEST(FixServices, both_together_keep_dependencies_and_user_apart) {
    const Fixed fixed = Fix(std::string("\"ObjectName\"=\"web\"\n\"DependOnService\"=") + aAndB);
    EXPECT_EQ(DataOf(fixed, "DependOnGroup"), std::string("a\0b\0\0", 5));
    EXPECT_EQ(DataOf(fixed, "DependOnService"), std::string("web\0", 4));
}

TEST(FixServices, a_key_of_this_system_stays_as_it_is) {
    const Fixed fixed =
        Fix(std::string("\"DependOnService\"=\"web\"\n\"ImagePath\"=\"/a.csh\"\n\"DependOnGroup\"=") + aAndB);
    EXPECT_EQ(DataOf(fixed, "DependOnService"), std::string("web\0", 4));
    EXPECT_EQ(DataOf(fixed, "DependOnGroup"), std::string("a\0b\0\0", 5));
    EXPECT_THAT(fixed.remarks, IsEmpty());
}

TEST(FixServices, what_cannot_be_changed_is_told) {
    EXPECT_THAT(Fix("\"ImagePath\"=\"%SystemRoot%\\\\x.exe\"\n").remarks,
                ElementsAre("! Web: ImagePath \"%SystemRoot%\\x.exe\" is no csh script"));
    EXPECT_THAT(Fix("\"Type\"=-\n", "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Web]\n[" + webKey).remarks,
                ElementsAre(HasSubstr("! Web: no Type here"), HasSubstr("! Web: no DisplayName here")));
}

TEST(FixServices, numbered_control_sets_count_and_other_keys_do_not) {
    const std::string value = std::string("\"DependOnService\"=") + aAndB;
    EXPECT_EQ(Fix(value, "HKLM\\System\\controlset001\\SERVICES\\Web").remarks.size(), 1u);
    for (const char *key :
         {"HKLM\\SYSTEM\\CurrentControlSet\\Services", "HKCU\\SYSTEM\\CurrentControlSet\\Services\\Web",
          "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Web\\Parameters", "HKLM\\SYSTEM\\a\\Services\\Web"}) {
        EXPECT_THAT(Fix(value, key).remarks, IsEmpty()) << key;
    }
}
