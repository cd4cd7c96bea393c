// SPDX-License-Identifier: MIT
// Programs of both word sizes together: the service daemon, the registry daemon, the service process and the command
// lines each come from one build or the other, in every mixture. TV_BIN has the programs of this build,
// TV_OTHER_BIN those of the other.
#include "tests/support/host.h"
#include "tv/winreg.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

std::string FolderOf(bool other) {
    const char *folder = std::getenv(other ? "TV_OTHER_BIN" : "TV_BIN");
    return folder != nullptr ? folder : "";
}

int ElfClassOf(const std::string &program) {
    char head[EI_NIDENT] = {};
    std::ifstream(program, std::ios::binary).read(head, sizeof head);
    return head[EI_CLASS];
}

struct Mixture { // true: from the other build
    bool servd;
    bool tvregd;
    bool service;
    bool commands;
};

std::string NameOf(const testing::TestParamInfo<Mixture> &info) {
    const auto size = [](const char *program, bool other) {
        const bool is32 = (sizeof(void *) == 4) != other;
        return std::string(program) + (is32 ? "32" : "64");
    };
    const Mixture &mixture = info.param;
    return size("servd", mixture.servd) + "_" + size("tvregd", mixture.tvregd) + "_" +
           size("service", mixture.service) + "_" + size("commands", mixture.commands);
}

std::vector<Mixture> EveryMixture() {
    std::vector<Mixture> mixtures;
    for (unsigned bits = 1; bits < 15; ++bits) {
        mixtures.push_back({(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, (bits & 8) != 0});
    }
    return mixtures;
}

struct WordSizes : testing::TestWithParam<Mixture> {
    const std::string folder = MakeScratchFolder();
    const std::string ownFolder = FolderOf(false);
    pid_t daemon = 0;

    // The programs that the shared functions start come from the folder in TV_BIN.
    void UseFolderOf(bool other) { setenv("TV_BIN", (other ? FolderOf(true) : ownFolder).c_str(), 1); }

    void StartServd() {
        UseFolderOf(GetParam().servd);
        daemon = StartServiceDaemon();
        ASSERT_EQ(ElfClassOf("/proc/" + std::to_string(daemon) + "/exe"), ElfClassOf(ProgramPath("servd")));
    }
    void SetUp() override {
        UseFolderOf(GetParam().tvregd);
        (void)StartRegistryDaemon(folder + "/registry.db");
        StartServd();
    }
    void TearDown() override {
        EndAllProcesses();
        UseFolderOf(false);
    }

    // Runs one of the command lines, which must succeed. Returns what it prints.
    std::string Do(const char *program, std::vector<std::string> arguments) {
        UseFolderOf(GetParam().commands);
        arguments.insert(arguments.begin(), ProgramPath(program));
        const Ended ended = RunAndRead({.command = std::move(arguments)}, 90000);
        EXPECT_EQ(ended.status, 0) << ended.output << ended.error;
        return ended.output;
    }
    std::string Tvsc(std::vector<std::string> arguments) { return Do("tvsc", std::move(arguments)); }
    std::string Tvreg(std::vector<std::string> arguments) { return Do("tvreg", std::move(arguments)); }
    Json StatusOf(const std::string &service) {
        return Json::parse(Tvsc({"status", service, "--json"})).at("services").at(0);
    }

    void CreateSample(const std::string &service, const std::vector<std::string> &further = {}) {
        const std::string image = folder + "/" + service + ".csh";
        const std::string log = folder + "/" + service + ".log";
        WriteFile(image, "#!/bin/csh -f\nexec '" + FolderOf(GetParam().service) + "/tvsample' --log '" + log + "'\n");
        std::vector<std::string> command = {"create", service, "--image", image};
        command.insert(command.end(), further.begin(), further.end());
        (void)Tvsc(command);
    }
};

TEST_P(WordSizes, a_service_lives_its_whole_life) {
    CreateSample("first", {"--start", "auto"});
    CreateSample("second", {"--depends", "first", "--display", "The second", "--error", "severe"});
    (void)Tvsc({"start", "first"});
    EXPECT_THAT(Tvsc({"start", "second", "--", "one", "two three"}), HasSubstr("second: running"));
    EXPECT_THAT(ReadFile(folder + "/second.log"), HasSubstr("args=one,two three"));

    const Json status = StatusOf("second");
    EXPECT_EQ(status.at("state"), "running");
    EXPECT_EQ(status.at("accepts"), Json::array({"stop", "pause_continue"}));
    const std::string process = std::to_string(status.at("pid_hint").get<int>());
    EXPECT_EQ(ElfClassOf("/proc/" + process + "/exe"), ElfClassOf(FolderOf(GetParam().service) + "/tvsample"));

    (void)Tvsc({"pause", "second"});
    EXPECT_EQ(StatusOf("second").at("state"), "paused");
    (void)Tvsc({"continue", "second"});
    (void)Tvsc({"control", "second", "199"});
    EXPECT_THAT(ReadFile(folder + "/second.log"), HasSubstr("control 199"));

    (void)Tvsc({"config", "second", "--display", "Still the second"});
    EXPECT_EQ(Tvsc({"name", "second"}), "second\tStill the second\n");
    EXPECT_THAT(Tvsc({"dependents", "first"}), HasSubstr("second"));
    EXPECT_THAT(Tvsc({"list"}), HasSubstr("Still the second"));
    EXPECT_THAT(Tvsc({"stop", "second"}), HasSubstr("second: stopped"));
    EXPECT_EQ(Tvsc({"delete", "second"}), "second: deleted\n");
}

TEST_P(WordSizes, the_database_outlives_both_daemons) {
    CreateSample("kept", {"--start", "auto", "--group", "grp"});
    const std::string config = Tvsc({"show", "kept", "--json"});
    EXPECT_EQ(StopDaemon(daemon), 0);
    ASSERT_NO_FATAL_FAILURE(StartServd());
    (void)Tvsc({"wait", "kept", "--for", "running"}); // the daemon may answer before its report
    EXPECT_EQ(StatusOf("kept").at("state"), "running");
    const Json before = Json::parse(config).at("services").at(0).at("config");
    EXPECT_EQ(Json::parse(Tvsc({"show", "kept", "--json"})).at("services").at(0).at("config"), before);
    (void)Tvsc({"stop", "kept"});
}

TEST_P(WordSizes, registry_text_comes_back_as_it_went) {
    WriteKey("Values", {{"", REG_SZ, Sz("unnamed")},
                        {"number", REG_DWORD, Dword(0xFFFF0010)},
                        {"multi", REG_MULTI_SZ, MultiSz({"one", "two"})},
                        {"bytes", REG_BINARY, std::string("\0\x80\xFF", 3)},
                        {"odd", 0xFFFFABCD, "\x01"}});
    const std::vector<RegistryValue> written = ReadValues("Values");
    const std::string text = Tvreg({"export", "HKLM\\Values"});
    WriteFile(folder + "/values.reg", text);
    (void)Tvreg({"delete", "HKLM\\Values"});
    EXPECT_FALSE(KeyExists("Values"));
    (void)Tvreg({"import", folder + "/values.reg"});
    EXPECT_EQ(ReadValues("Values"), written);
}

INSTANTIATE_TEST_SUITE_P(Mixed, WordSizes, testing::ValuesIn(EveryMixture()), NameOf);

TEST(Builds, differ_in_their_word_size) {
    for (const char *program : {"servd", "tvregd", "tvsc", "tvreg", "tvsample"}) {
        const int own = ElfClassOf(FolderOf(false) + "/" + program);
        EXPECT_EQ(own, sizeof(void *) == 4 ? ELFCLASS32 : ELFCLASS64) << program;
        EXPECT_NE(ElfClassOf(FolderOf(true) + "/" + program), own) << program;
    }
}

} // namespace
