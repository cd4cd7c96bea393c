// SPDX-License-Identifier: MIT
// tvreg beside other clients that change what it reads, and beside a disk that takes no more: what is exported is one
// state of the registry, whole, or nothing.
#include "tests/support/tvreg_fixture.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct TvregChanges : TvregFixture {
    const std::string file = folder + "/" + name + ".reg";

    Ended Export() { return Run({"export", "--reg4", key, file}); }
};

// Numbers that follow a text in another, as often as it stands there.
std::vector<int> NumbersBehind(const std::string &mark, const std::string &text) {
    std::vector<int> numbers;
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        numbers.push_back(std::stoi(text.substr(at + mark.size()), nullptr, 16));
    }
    return numbers;
}

} // namespace

// What is deleted moves what is behind it forward, past the index that is asked for next: values that nobody deleted
// were missing, and the status was 0.
TEST_F(TvregChanges, export_loses_no_value_while_others_are_deleted) {
    constexpr int lasting = 1000;
    for (int round = 0; round < 2; ++round) {
        std::vector<RegistryValue> values;
        for (int i = 0; i < lasting; ++i) {
            if (i % 5 == 0) values.push_back({"goes" + std::to_string(i), REG_DWORD, Dword(0)});
            values.push_back({"stays" + std::to_string(i), REG_DWORD, Dword(static_cast<std::uint32_t>(i))});
        }
        WriteKey(name, values);
        std::thread deleting([&] {
            for (int i = 0; i < lasting; i += 5) {
                DeleteValue(name, "goes" + std::to_string(i));
            }
        });
        const Ended ended = Export();
        deleting.join();
        EXPECT_EQ(ended.status, 0) << ended.error;
        const std::string text = ReadFile(file);
        int found = 0;
        for (int i = 0; i < lasting; ++i) {
            if (text.find("\"stays" + std::to_string(i) + "\"") != std::string::npos) ++found;
        }
        EXPECT_EQ(found, lasting) << "round " << round;
        DeleteKey(name);
    }
}

// A client counts up in the first key, then in the last one: at no moment is the last ahead.
TEST_F(TvregChanges, export_of_several_keys_is_one_state) {
    constexpr std::uint32_t last = 90;
    for (const char *below : {"\\a", "\\b", "\\c", "\\d", "\\e", "\\f", "\\g"}) {
        WriteKey(name + below, {{"n", REG_DWORD, Dword(0)}});
    }
    std::thread counting([&] {
        for (std::uint32_t n = 1; n <= last; ++n) {
            WriteKey(name + "\\a", {{"n", REG_DWORD, Dword(n)}});
            WriteKey(name + "\\g", {{"n", REG_DWORD, Dword(n)}});
            if (n % 30 == 0) SleepMs(500); // longer than an export pauses
        }
    });
    int exports = 0;
    for (bool isLast = false; !isLast; ++exports) {
        const Ended ended = Export();
        EXPECT_EQ(ended.status, 0) << ended.error;
        const std::vector<int> numbers = NumbersBehind("\"n\"=dword:", ReadFile(file));
        ASSERT_EQ(numbers.size(), 7u);
        EXPECT_LE(numbers.back(), numbers.front());
        EXPECT_GE(numbers.back() + 1, numbers.front());
        isLast = numbers.back() == static_cast<int>(last) || testing::Test::HasFailure();
    }
    counting.join();
    EXPECT_GT(exports, 1);
}

// The old file was cut to nothing before the new one was known to have room.
TEST_F(TvregChanges, export_that_fails_leaves_the_file_that_was_there) {
    WriteKey(name, {{"long", REG_BINARY, std::string(5000, 'x')}});
    WriteFile(file, "old\n");
    const Ended ended = RunAndRead({.command = {"/bin/bash", "-c", "trap '' XFSZ; ulimit -f 1; exec \"$@\"", "bash",
                                                ProgramPath("tvreg"), "export", key, file}});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(file + ": File too large"));
    EXPECT_EQ(ReadFile(file), "old\n");
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string left = entry.path().filename();
        EXPECT_TRUE(!left.starts_with(name) || left == name + ".reg") << left;
    }
}

TEST_F(TvregChanges, export_keeps_the_mode_of_the_file_and_follows_a_link) {
    WriteKey(name, {});
    WriteFile(file + ".target", "old\n", 0600);
    std::filesystem::create_symlink(name + ".reg.target", file);
    EXPECT_EQ(Export().status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(file));
    EXPECT_THAT(ReadFile(file + ".target"), testing::StartsWith("REGEDIT4"));
    EXPECT_EQ(std::filesystem::status(file + ".target").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}
