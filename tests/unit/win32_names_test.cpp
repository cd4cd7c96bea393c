// SPDX-License-Identifier: MIT
#include "util/win32_names.h"

#include "tv/winerror.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

TEST(Win32ErrorName, known_code_gives_the_name_of_its_constant) {
    EXPECT_STREQ(Win32ErrorName(ERROR_SUCCESS), "ERROR_SUCCESS");
    EXPECT_STREQ(Win32ErrorName(ERROR_FILE_NOT_FOUND), "ERROR_FILE_NOT_FOUND");
    EXPECT_STREQ(Win32ErrorName(1060), "ERROR_SERVICE_DOES_NOT_EXIST");
    EXPECT_STREQ(Win32ErrorName(1726), "RPC_S_CALL_FAILED");
}

TEST(Win32ErrorName, unknown_code_gives_null) {
    EXPECT_EQ(Win32ErrorName(1), nullptr);
    EXPECT_EQ(Win32ErrorText(0xFFFFFFFF), nullptr);
}

TEST(Win32ErrorName, every_constant_of_the_header_is_known) {
    std::ifstream header(TV_WINERROR_HEADER);
    ASSERT_TRUE(header.is_open());
    int constants = 0;
    for (std::string line; std::getline(header, line);) {
        std::istringstream words(line);
        std::string directive, name;
        std::uint32_t code = 0;
        if (!(words >> directive >> name >> code) || directive != "#define" || name == "NO_ERROR") continue;
        ++constants;
        EXPECT_STREQ(Win32ErrorName(code), name.c_str());
        EXPECT_NE(Win32ErrorText(code), nullptr) << name;
    }
    EXPECT_GT(constants, 50);
}
