// SPDX-License-Identifier: MIT
// The spellings of the Win32 registry tool: what each means here.
#include "tvreg/spellings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Words = std::vector<std::string>;

struct Spelled {
    const char *command;
    Words typed;
    Words meant;
};

} // namespace

TEST(OurSpellings, each_option_of_each_command) {
    const Spelled all[] = {
        {"query", {"K", "/v", "n"}, {"K", "--value=n"}},
        {"query", {"K", "/V", "n"}, {"K", "--value=n"}},
        {"query", {"K", "-v", "n"}, {"K", "--value=n"}},
        {"query", {"K", "/v", "/s"}, {"K", "--names", "--recursive"}},
        {"query", {"K", "/f", "x", "/v"}, {"K", "--find=x", "--names"}},
        {"query", {"K", "/ve"}, {"K", "--ve"}},
        {"query", {"K", "-ve"}, {"K", "--ve"}},
        {"query",
         {"K", "/s", "/f", "/x", "/k", "/d", "/c", "/e", "/z"},
         {"K", "--recursive", "--find=/x", "--keys", "--in-data", "--case", "--exact", "--type-numbers"}},
        {"query", {"K", "/t", "REG_SZ", "/se", ";", "/reg:64"}, {"K", "--type=REG_SZ", "--se=;"}},
        {"query", {"K", "-se", "-"}, {"K", "--se=-"}},
        {"add",
         {"K", "/v", "/ve", "/t", "REG_SZ", "/d", "/f", "/f"},
         {"K", "--value=/ve", "--type=REG_SZ", "--data=/f", "--force"}},
        {"add", {"K", "/ve", "/s", ",", "/F"}, {"K", "--ve", "--separator=,", "--force"}},
        {"add", {"K", "-v", "-s", "-d", "-t"}, {"K", "--value=-s", "--data=-t"}},
        {"add", {"K", "-d", "a", "/f", "-f"}, {"K", "--data=a", "/f", "--force"}},
        {"query", {"K", "/v", ""}, {"K", "--value", ""}},
        {"delete", {"K", "-ve"}, {"K", "--ve"}},
        {"delete", {"K", "-va", "/f"}, {"K", "--va", "--force"}},
        {"delete", {"K", "/va"}, {"K", "--va"}},
        {"delete", {"K", "/v", "va"}, {"K", "--value=va"}},
        {"copy", {"A", "B", "/s", "/f"}, {"A", "B", "--recursive", "--force"}},
        {"compare",
         {"A", "B", "/v", "n", "/oa", "-od", "/OS", "/on", "/s"},
         {"A", "B", "--value=n", "--oa", "--od", "--os", "--on", "--recursive"}},
        {"compare", {"A", "B", "/ve"}, {"A", "B", "--ve"}},
        {"save", {"K", "f", "/y"}, {"K", "f", "--yes"}},
        {"export", {"K", "f", "/Y"}, {"K", "f", "--yes"}},
        // What is no option stays, and so do our own options.
        {"query", {"HKLM/a", "--value", "/ve"}, {"HKLM/a", "--value", "--ve"}},
        {"query", {"K", "--", "/v", "-ve"}, {"K", "--", "/v", "-ve"}},
        {"query", {"K", "-V"}, {"K", "-V"}},
        {"import", {"/v", "/tmp/f.reg"}, {"/v", "/tmp/f.reg"}},
        {"set", {"K", "/v", "/d", "-ve"}, {"K", "/v", "/d", "-ve"}},
        {"delete", {"K", "/v"}, {"K", "--value"}},
    };
    for (const Spelled &one : all) {
        EXPECT_EQ(OurSpellings(one.command, one.typed), one.meant)
            << one.command << " " << testing::PrintToString(one.typed);
    }
}
