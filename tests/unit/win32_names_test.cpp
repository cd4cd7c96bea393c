// SPDX-License-Identifier: MIT
// The names of result codes against the header that has their numbers.
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

TEST(Win32ErrorName, every_constant_has_its_win32_number) {
    const struct {
        std::uint32_t code;
        const char *name;
    } codes[] = {
        {0, "ERROR_SUCCESS"},
        {2, "ERROR_FILE_NOT_FOUND"},
        {3, "ERROR_PATH_NOT_FOUND"},
        {5, "ERROR_ACCESS_DENIED"},
        {6, "ERROR_INVALID_HANDLE"},
        {8, "ERROR_NOT_ENOUGH_MEMORY"},
        {13, "ERROR_INVALID_DATA"},
        {32, "ERROR_SHARING_VIOLATION"},
        {50, "ERROR_NOT_SUPPORTED"},
        {52, "ERROR_DUP_NAME"},
        {87, "ERROR_INVALID_PARAMETER"},
        {120, "ERROR_CALL_NOT_IMPLEMENTED"},
        {122, "ERROR_INSUFFICIENT_BUFFER"},
        {123, "ERROR_INVALID_NAME"},
        {124, "ERROR_INVALID_LEVEL"},
        {161, "ERROR_BAD_PATHNAME"},
        {183, "ERROR_ALREADY_EXISTS"},
        {193, "ERROR_BAD_EXE_FORMAT"},
        {234, "ERROR_MORE_DATA"},
        {259, "ERROR_NO_MORE_ITEMS"},
        {1009, "ERROR_BADDB"},
        {1010, "ERROR_BADKEY"},
        {1011, "ERROR_CANTOPEN"},
        {1012, "ERROR_CANTREAD"},
        {1013, "ERROR_CANTWRITE"},
        {1016, "ERROR_REGISTRY_IO_FAILED"},
        {1018, "ERROR_KEY_DELETED"},
        {1020, "ERROR_KEY_HAS_CHILDREN"},
        {1021, "ERROR_CHILD_MUST_BE_VOLATILE"},
        {1051, "ERROR_DEPENDENT_SERVICES_RUNNING"},
        {1052, "ERROR_INVALID_SERVICE_CONTROL"},
        {1053, "ERROR_SERVICE_REQUEST_TIMEOUT"},
        {1054, "ERROR_SERVICE_NO_THREAD"},
        {1055, "ERROR_SERVICE_DATABASE_LOCKED"},
        {1056, "ERROR_SERVICE_ALREADY_RUNNING"},
        {1057, "ERROR_INVALID_SERVICE_ACCOUNT"},
        {1058, "ERROR_SERVICE_DISABLED"},
        {1059, "ERROR_CIRCULAR_DEPENDENCY"},
        {1060, "ERROR_SERVICE_DOES_NOT_EXIST"},
        {1061, "ERROR_SERVICE_CANNOT_ACCEPT_CTRL"},
        {1062, "ERROR_SERVICE_NOT_ACTIVE"},
        {1063, "ERROR_FAILED_SERVICE_CONTROLLER_CONNECT"},
        {1064, "ERROR_EXCEPTION_IN_SERVICE"},
        {1065, "ERROR_DATABASE_DOES_NOT_EXIST"},
        {1066, "ERROR_SERVICE_SPECIFIC_ERROR"},
        {1067, "ERROR_PROCESS_ABORTED"},
        {1068, "ERROR_SERVICE_DEPENDENCY_FAIL"},
        {1069, "ERROR_SERVICE_LOGON_FAILED"},
        {1070, "ERROR_SERVICE_START_HANG"},
        {1071, "ERROR_INVALID_SERVICE_LOCK"},
        {1072, "ERROR_SERVICE_MARKED_FOR_DELETE"},
        {1073, "ERROR_SERVICE_EXISTS"},
        {1075, "ERROR_SERVICE_DEPENDENCY_DELETED"},
        {1077, "ERROR_SERVICE_NEVER_STARTED"},
        {1078, "ERROR_DUPLICATE_SERVICE_NAME"},
        {1083, "ERROR_SERVICE_NOT_IN_EXE"},
        {1113, "ERROR_NO_UNICODE_TRANSLATION"},
        {1242, "ERROR_ALREADY_REGISTERED"},
        {1460, "ERROR_TIMEOUT"},
        {1722, "RPC_S_SERVER_UNAVAILABLE"},
        {1726, "RPC_S_CALL_FAILED"},
    };
    for (const auto &each : codes) {
        EXPECT_STREQ(Win32ErrorName(each.code), each.name) << each.code;
    }
    EXPECT_EQ(NO_ERROR, ERROR_SUCCESS);
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
