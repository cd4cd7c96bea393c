// SPDX-License-Identifier: MIT
// Import of .reg files: what is told, what is written where something is wrong, and by whom else meanwhile.
#include "tests/support/tvreg_fixture.h"
#include "tv/winreg.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <thread>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using Json = nlohmann::json;

namespace {

struct TvregImport : TvregFixture {};

// A key with as many values, the numbers from `first` on.
std::string ManyValues(const std::string &key, int first, int count) {
    std::string text = "REGEDIT4\n[" + key + "]\n";
    for (int i = first; i < first + count; ++i) {
        text += "\"v" + std::to_string(i) + "\"=\"" + std::to_string(i) + "\"\n";
    }
    return text;
}

} // namespace

TEST_F(TvregImport, all_wrong_lines_of_all_files_are_told_and_nothing_is_written) {
    const std::string first = File("REGEDIT4\n[" + key + "]\n\"a\"=nonsense\n\"b\"=hex:0\n", "1");
    const std::string second = File("REGEDIT4\n[" + key + "]\nwhat\n", "2");
    const Ended ended = Run({"import", first, second});
    EXPECT_EQ(ended.status, 6);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "tvreg: " + first +
                               ":3: a value must be a quoted text, dword:, hex:, hex(n): or -\ntvreg: " + first +
                               ":4: hexadecimal data must be pairs of digits\ntvreg: " + second +
                               ":3: neither a key, a value nor a comment\n");
    EXPECT_FALSE(KeyExists(name));
}

TEST_F(TvregImport, what_no_registry_takes_is_told_before_anything_is_written) {
    std::string deep = key;
    for (int i = 0; i < 512; ++i) {
        deep += "\\d";
    }
    const std::string file =
        File("REGEDIT4\n[" + key + "]\n\"fits\"=\"x\"\n[" + key + "\\" + std::string(1024, 'n') + "]\n[" + deep +
             "]\n\"" + std::string(70000, 'v') + "\"=\"x\"\n\"big\"=\"" + std::string(17 << 20, 'x') + "\"\n");
    const Ended ended = Run({"import", file});
    EXPECT_EQ(ended.status, 1);
    for (const char *line : {":4: ", ":5: ", ":6: ", ":7: "}) {
        EXPECT_THAT(ended.error, HasSubstr("tvreg: " + file + line));
    }
    EXPECT_THAT(ended.error, AllOf(HasSubstr("87 ERROR_INVALID_PARAMETER"), HasSubstr("223 ERROR_FILE_TOO_LARGE")));
    EXPECT_FALSE(KeyExists(name));
}

TEST_F(TvregImport, lenient_tells_wrong_lines_and_writes_the_rest) {
    const std::string file = File("REGEDIT4\n[" + key + "]\n\"a\"=nonsense\n\"b\"=\"C:\\temp\"\n");
    const Ended ended = Run({"import", "--lenient", file});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output, "1 key, 1 value written\n");
    EXPECT_THAT(ended.error, HasSubstr(file + ":3: "));
    EXPECT_THAT(ReadValues(name), ElementsAre(RegistryValue{"b", REG_SZ, Sz("C:\\temp")}));
}

TEST_F(TvregImport, encoding_is_the_one_that_is_told) {
    const std::string file = File("REGEDIT4\r\n[" + key + "]\r\n\"v\"=\"\x80\"\r\n\x1A");
    (void)Do({"import", "--encoding", "CP1252", file});
    EXPECT_THAT(ReadValues(name), ElementsAre(RegistryValue{"v", REG_SZ, Sz("\xE2\x82\xAC")}));
    const Ended unknown = Run({"import", "--encoding", "KLINGON-8", file});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_THAT(unknown.error, HasSubstr("KLINGON-8: no such encoding"));
}

TEST_F(TvregImport, json_counts_and_tells_faults) {
    const std::string file = File("REGEDIT4\n[" + key + "]\n\"a\"=\"x\"\n\"b\"=-\n[-" + key + "\\c]\n");
    Json told = Json::parse(Do({"import", "--json", file}));
    EXPECT_EQ(told, Json::parse(R"({"schema": "tvreg.import/1", "dry_run": false, "keys": 1, "values": 1,
                                    "deleted_keys": 1, "deleted_values": 1, "faults": []})"));
    const std::string wrong = File("REGEDIT4\nwrong\n");
    told = Json::parse(Run({"import", "--json", wrong}).output);
    ASSERT_EQ(told["faults"].size(), 1u);
    EXPECT_EQ(told["faults"][0]["file"], wrong);
    EXPECT_EQ(told["faults"][0]["line"], 2);
}

TEST_F(TvregImport, progress_is_shown_at_a_terminal_only) {
    const std::string file = File(ManyValues(key, 0, 5000));
    int status = -1;
    const std::string shown = RunAtTerminal(ProgramPath("tvreg") + " import " + file, &status);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(shown, AllOf(HasSubstr("\r5000 of 5000 values"), HasSubstr("1 key, 5000 values written")));
    EXPECT_EQ(Do({"import", file}), "1 key, 5000 values written\n");
}

TEST_F(TvregImport, many_keys_and_values_arrive_in_their_order) {
    std::string text = "REGEDIT4\n";
    for (int i = 0; i < 700; ++i) {
        text += "[" + key + "\\k" + std::to_string(i) + "]\n\"n\"=dword:" + std::to_string(i) + "\n\"m\"=\"x\"\n";
    }
    EXPECT_EQ(Do({"import", File(text)}), "700 keys, 1400 values written\n");
    const std::vector<std::string> subKeys = ReadSubKeys(name);
    ASSERT_EQ(subKeys.size(), 700u);
    for (int i = 0; i < 700; ++i) {
        EXPECT_EQ(subKeys[static_cast<std::size_t>(i)], "k" + std::to_string(i));
    }
    EXPECT_THAT(ReadValues(name + "\\k699"),
                ElementsAre(RegistryValue{"n", REG_DWORD, Dword(0x699)}, RegistryValue{"m", REG_SZ, Sz("x")}));
}

TEST_F(TvregImport, deletions_take_their_place_in_the_order) {
    WriteKey(name + "\\a", {{"old", REG_SZ, Sz("x")}});
    (void)Do({"import", File("REGEDIT4\n[" + key + "\\a]\n\"gone\"=\"x\"\n[-" + key + "\\a]\n[" + key +
                             "\\a]\n\"new\"=\"x\"\n[" + key + "\\b]\n[-" + key + "\\b]\n")});
    EXPECT_THAT(ReadSubKeys(name), ElementsAre("a"));
    EXPECT_THAT(ReadValues(name + "\\a"), ElementsAre(RegistryValue{"new", REG_SZ, Sz("x")}));
}

TEST_F(TvregImport, a_root_takes_values) {
    const Ended ended = Run({"import", File("REGEDIT4\n[HKLM]\n\"at root\"=\"x\"\n[-HKLM\\none]\n")});
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(ReadValue("", "at root")->data, Sz("x"));
    DeleteValue("", "at root");
}

TEST_F(TvregImport, two_imports_and_two_exports_at_once_each_do_all_of_theirs) {
    constexpr int count = 3000;
    const std::string one = File(ManyValues(key, 0, count), "1"), two = File(ManyValues(key, count, count), "2");
    Ended ended[4];
    const auto start = [&](int i, std::vector<std::string> arguments) {
        return std::thread([&ended, i, arguments] { ended[i] = Run(arguments); });
    };
    WriteKey(name, {});
    const std::string outs[] = {folder + "/" + name + "3", folder + "/" + name + "4"};
    std::thread threads[] = {start(0, {"import", one}), start(1, {"import", two}),
                             start(2, {"export", "--reg4", key, outs[0]}),
                             start(3, {"export", "--reg4", key, outs[1]})};
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const Ended &each : ended) {
        EXPECT_EQ(each.status, 0) << each.error;
    }
    EXPECT_EQ(ReadValues(name).size(), 2u * count);
    // The values came in the order of either file: an export holds the beginning of both, without a gap.
    for (const std::string &out : outs) {
        const std::string text = ReadFile(out);
        for (const int first : {0, count}) {
            bool isOver = false;
            for (int i = first; i < first + count; ++i) {
                const bool isThere = text.find("\"v" + std::to_string(i) + "\"=") != std::string::npos;
                EXPECT_FALSE(isOver && isThere) << out << ": " << i;
                isOver = !isThere;
            }
        }
    }
}
