// SPDX-License-Identifier: MIT
// What a program learns of itself: its file, its arguments, its numbers.
#include "tests/support/win32_handle.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string OwnPath() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

TEST(GetModuleFileName, is_the_path_of_the_program) {
    char path[PATH_MAX];
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, sizeof path), OwnPath().size());
    EXPECT_EQ(path, OwnPath());
    EXPECT_EQ(GetModuleFileNameA(GetModuleHandleA(nullptr), path, sizeof path), OwnPath().size());
    WCHAR wide[PATH_MAX];
    EXPECT_EQ(GetModuleFileNameW(GetModuleHandleW(nullptr), wide, PATH_MAX), OwnPath().size());
    EXPECT_EQ(std::string(wide, wide + OwnPath().size() + 1), OwnPath() + '\0');
}

TEST(GetModuleFileName, room_one_below_at_and_above_what_is_needed) {
    const std::string own = OwnPath();
    const auto needed = static_cast<DWORD>(own.size() + 1);
    std::vector<char> path(needed + 1, '#');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameA(nullptr, path.data(), needed - 1), needed - 1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(path.data(), own.substr(0, own.size() - 1));
    EXPECT_EQ(path[needed - 1], '#');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameA(nullptr, path.data(), needed), needed - 1);
    EXPECT_EQ(GetModuleFileNameA(nullptr, path.data(), needed + 1), needed - 1);
    EXPECT_EQ(GetLastError(), 0u);

    std::vector<WCHAR> wide(needed + 1, u'#');
    EXPECT_EQ(GetModuleFileNameW(nullptr, wide.data(), needed - 1), needed - 1);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(wide[needed - 2], 0);
    EXPECT_EQ(wide[needed - 1], u'#');
    EXPECT_EQ(GetModuleFileNameW(nullptr, wide.data(), needed), needed - 1);
}

TEST(GetModuleFileName, no_room_is_87_and_another_module_126) {
    char path[16];
    WCHAR wide[16];
    int other = 0;
    EXPECT_CODE(GetModuleFileNameA(nullptr, nullptr, 16), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(GetModuleFileNameA(nullptr, path, 0), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(GetModuleFileNameA(&other, path, sizeof path), ERROR_MOD_NOT_FOUND);
    EXPECT_CODE(GetModuleFileNameW(nullptr, nullptr, 16), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(GetModuleFileNameW(&other, wide, 16), ERROR_MOD_NOT_FOUND);
}

// Runs this program again, for the one test below that does what TV_CHILD says.
std::string RunChild(const std::string &program, const std::string &what, const std::string &arguments = "") {
    const std::string command = "TV_CHILD=" + what + " " + program + " --gtest_filter=Child.* " + arguments + " 2>&1";
    FILE *output = popen(command.c_str(), "r");
    std::string text;
    for (int c = 0; (c = fgetc(output)) != EOF;) {
        text += static_cast<char>(c);
    }
    EXPECT_EQ(pclose(output), 0) << text;
    const std::size_t begin = text.find('<'), end = text.rfind('>');
    return end == std::string::npos ? text : text.substr(begin + 1, end - begin - 1);
}

TEST(Child, tells_what_it_is_asked) {
    const char *what = std::getenv("TV_CHILD");
    if (what == nullptr) return;
    if (what == std::string("replaced")) {
        ASSERT_EQ(unlink(OwnPath().c_str()), 0);
    }
    char path[PATH_MAX];
    ASSERT_NE(GetModuleFileNameA(nullptr, path, sizeof path), 0u);
    printf("<%s>\n", what == std::string("line") ? GetCommandLineA() : path);
}

// A service goes on while a package manager puts a new file in the place of its program.
TEST(GetModuleFileName, of_a_program_whose_file_was_replaced_is_the_path_that_it_had) {
    const std::string copy = testing::TempDir() + "replaced" + std::to_string(getpid());
    std::filesystem::copy_file(OwnPath(), copy);
    EXPECT_EQ(RunChild(copy, "path"), copy);
    EXPECT_EQ(RunChild(copy, "replaced"), copy);
    EXPECT_FALSE(std::filesystem::exists(copy));
}

TEST(GetCommandLine, quotes_as_Win32_programs_take_lines_apart) {
    const std::string line = RunChild(OwnPath(), "line", R"(plain 'a b' '' 'q"q' 'back\slash' 'C:\a b\' 'x\"y z')");
    const std::string expected = R"( plain "a b" "" "q\"q" back\slash "C:\a b\\" "x\\\"y z")";
    EXPECT_EQ(line, OwnPath() + " --gtest_filter=Child.*" + expected);
}

TEST(GetModuleHandle, of_a_name_is_126) {
    EXPECT_CODE(GetModuleHandleA("kernel32") != nullptr, ERROR_MOD_NOT_FOUND);
    EXPECT_CODE(GetModuleHandleW(Wide(u"kernel32")) != nullptr, ERROR_MOD_NOT_FOUND);
}

TEST(GetCommandLine, begins_with_the_program_and_is_the_same_each_time) {
    const std::string line = GetCommandLineA();
    EXPECT_NE(line.find("base_program_test"), std::string::npos) << line;
    EXPECT_EQ(GetCommandLineA(), GetCommandLineA());
    EXPECT_EQ(std::string(GetCommandLineW(), GetCommandLineW() + line.size()), line);
}

TEST(GetEnvironmentVariable, tells_length_or_the_room_it_needs) {
    ASSERT_TRUE(SetEnvironmentVariableA("TV_TEST", "abc"));
    char value[] = "######";
    EXPECT_EQ(GetEnvironmentVariableA("TV_TEST", value, 3), 4u);
    EXPECT_STREQ(value, "######");
    EXPECT_EQ(GetEnvironmentVariableA("TV_TEST", nullptr, 0), 4u);
    EXPECT_EQ(GetEnvironmentVariableA("TV_TEST", value, 4), 3u);
    EXPECT_STREQ(value, "abc");
    EXPECT_EQ(value[4], '#');
    ASSERT_TRUE(SetEnvironmentVariableW(Wide(u"TV_TEST"), Wide(u"w\u00E4")));
    EXPECT_STREQ(getenv("TV_TEST"), "w\xC3\xA4");
    WCHAR wide[3];
    EXPECT_EQ(GetEnvironmentVariableW(Wide(u"TV_TEST"), wide, 2), 3u);
    EXPECT_EQ(GetEnvironmentVariableW(Wide(u"TV_TEST"), wide, 3), 2u);
    EXPECT_EQ(wide[1], 0xE4);
}

TEST(GetEnvironmentVariable, empty_and_missing_are_told_apart_by_the_last_error) {
    char value[8];
    ASSERT_TRUE(SetEnvironmentVariableA("TV_TEST", ""));
    SetLastError(ERROR_DUP_NAME);
    EXPECT_EQ(GetEnvironmentVariableA("TV_TEST", value, sizeof value), 0u);
    EXPECT_EQ(GetLastError(), 0u);
    ASSERT_TRUE(SetEnvironmentVariableA("TV_TEST", nullptr));
    EXPECT_CODE(GetEnvironmentVariableA("TV_TEST", value, sizeof value), ERROR_ENVVAR_NOT_FOUND);
    EXPECT_CODE(GetEnvironmentVariableA(nullptr, value, sizeof value), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(SetEnvironmentVariableA("", "x"), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(SetEnvironmentVariableA("a=b", "x"), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(SetEnvironmentVariableW(nullptr, Wide(u"x")), ERROR_INVALID_PARAMETER);
}

TEST(SetCurrentDirectory, is_where_relative_paths_begin) {
    const std::string before = std::filesystem::current_path();
    char path[PATH_MAX];
    WCHAR wide[PATH_MAX];
    ASSERT_TRUE(SetCurrentDirectoryA("/usr/lib"));
    EXPECT_EQ(GetCurrentDirectoryA(sizeof path, path), 8u);
    EXPECT_STREQ(path, "/usr/lib");
    EXPECT_EQ(GetCurrentDirectoryA(8, path), 9u);
    char *part = nullptr;
    EXPECT_EQ(GetFullPathNameA("../x//./y.conf", sizeof path, path, &part), 13u);
    EXPECT_STREQ(path, "/usr/x/y.conf");
    EXPECT_STREQ(part, "y.conf");
    EXPECT_EQ(GetFullPathNameA("/a/b/", sizeof path, path, &part), 5u);
    EXPECT_EQ(part, nullptr);
    EXPECT_EQ(GetFullPathNameA("x", 10, path, &part), 11u);
    ASSERT_TRUE(SetCurrentDirectoryW(Wide(u"/usr")));
    EXPECT_EQ(GetCurrentDirectoryW(PATH_MAX, wide), 4u);
    LPWSTR widePart = nullptr;
    EXPECT_EQ(GetFullPathNameW(Wide(u"\u00E4"), PATH_MAX, wide, &widePart), 6u);
    EXPECT_EQ(widePart, wide + 5);
    EXPECT_CODE(SetCurrentDirectoryA("/nowhere"), ERROR_FILE_NOT_FOUND);
    EXPECT_CODE(SetCurrentDirectoryA(nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_CODE(GetFullPathNameA("", sizeof path, path, nullptr), ERROR_INVALID_NAME);
    EXPECT_CODE(GetFullPathNameA(nullptr, sizeof path, path, nullptr), ERROR_INVALID_PARAMETER);
    std::filesystem::current_path(before);
}

// A length where "/usr/lib" fits, else the room that it needs; nothing is written behind the room.
template <typename NarrowCall, typename WideCall> void ExpectUsrLib(NarrowCall narrowCall, WideCall wideCall) {
    constexpr DWORD length = 8;
    for (const DWORD room : {length, length + 1, length + 2}) {
        const DWORD told = room > length ? length : length + 1;
        char text[32];
        WCHAR wide[32];
        std::fill(std::begin(text), std::end(text), '#');
        std::fill(std::begin(wide), std::end(wide), WCHAR{'#'});
        EXPECT_EQ(narrowCall(room, text), told) << room;
        EXPECT_EQ(wideCall(room, wide), told) << room;
        EXPECT_EQ(text[room], '#');
        EXPECT_EQ(wide[room], WCHAR{'#'});
        if (room > length) {
            EXPECT_STREQ(text, "/usr/lib");
            EXPECT_EQ(std::u16string(reinterpret_cast<char16_t *>(wide)), u"/usr/lib");
        }
    }
}

TEST(GetCurrentDirectory, room_one_below_at_and_above_what_is_needed) {
    const std::string before = std::filesystem::current_path();
    std::filesystem::current_path("/usr/lib");
    ExpectUsrLib([](DWORD room, LPSTR text) { return GetCurrentDirectoryA(room, text); },
                 [](DWORD room, LPWSTR text) { return GetCurrentDirectoryW(room, text); });
    std::filesystem::current_path(before);
}

TEST(GetFullPathName, room_one_below_at_and_above_what_is_needed) {
    ExpectUsrLib([](DWORD room, LPSTR text) { return GetFullPathNameA("/usr/x/../lib", room, text, nullptr); },
                 [](DWORD room, LPWSTR text) { return GetFullPathNameW(Wide(u"/usr/x/../lib"), room, text, nullptr); });
}

TEST(GetCurrentProcessId, and_the_thread_s_are_the_kernel_s) {
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(getpid()));
    EXPECT_EQ(GetCurrentThreadId(), static_cast<DWORD>(gettid()));
    std::thread([] { EXPECT_NE(GetCurrentThreadId(), GetCurrentProcessId()); }).join();
}

TEST(OutputDebugString, goes_to_standard_error_as_it_is) {
    testing::internal::CaptureStderr();
    OutputDebugStringA("a %s b\n");
    OutputDebugStringW(Wide(u"w\u00E4\n"));
    OutputDebugStringA(nullptr);
    OutputDebugStringW(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a %s b\nw\xC3\xA4\n");
}

} // namespace
