// SPDX-License-Identifier: MIT
// What the commands that change something do to databases of every kind: empty, broken, locked, cyclic, with record 0
// in use, with names of other scripts and of bytes that are no text, and large. Each command is run with --dry-run,
// which must change nothing, and then as JSON, which must be as its schema says.
#include "tests/support/json_schema.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <filesystem>

using testing::HasSubstr;

namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

// What comes of one command.
struct Outcome {
    Words words;
    int status;
    DWORD code;                        // of the first result
    std::string text;                  // in it
    std::optional<int> dryStatus = {}; // with --dry-run, where that is another one
};

struct TvscChanging : testing::Test {
    const std::string folder = MakeScratchFolder();
    const std::string image = folder + "/sample.csh";
    std::string objects; // of JSON

    void SetUp() override {
        (void)StartProgram({.command = {ProgramPath("tvregd"), "--lazy", "--database", folder + "/registry.db"}});
        ASSERT_TRUE(WaitForProgram(REGDAEMONPROG, REGDAEMONVERS));
        WriteFile(image, "#!/bin/csh -f\nexec '" + ProgramPath("tvsample") + "' --log '" + folder + "/log'\n");
        std::filesystem::remove_all("/run/tv");
    }
    void TearDown() override {
        EndAllProcesses();
        const Ended held = HoldAgainstSchemas("tvsc", objects, folder, false);
        if (held.status == noValidator) GTEST_SKIP() << "python3-jsonschema is not installed";
        EXPECT_EQ(held.status, 0) << held.error;
    }

    static void StartDaemon(int timeoutMs = patienceMs) { (void)StartServiceDaemon({}, timeoutMs); }
    static Ended Run(const Words &options, const Words &words) {
        Words command = {ProgramPath("tvsc")};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), words.begin(), words.end());
        return RunAndRead({.command = command, .environment = {"LC_ALL=C.UTF-8", "VISUAL=sed -i s/normal/ignore/"}},
                          120'000);
    }
    std::string File(const std::string &name, const std::string &text) {
        WriteFile(folder + "/" + name, text);
        return folder + "/" + name;
    }
    // The whole registry of services.
    std::string Registry() {
        return RunAndRead({.command = {ProgramPath("tvreg"), "export", "HKLM\\" + servicesKey}}, 90000).output;
    }

    void ExpectShowable(const std::string &text) {
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') || c == 0x7F;
        })) << text;
        EXPECT_NO_THROW((void)Json(text).dump()) << "no UTF-8: " << text;
    }

    void Expect(const Outcome &outcome) {
        const std::string what = testing::PrintToString(outcome.words);
        const std::string before = Registry();
        const Ended dry = Run({"--dry-run"}, outcome.words);
        EXPECT_EQ(dry.status, outcome.dryStatus.value_or(outcome.status)) << "dry " << what << dry.output << dry.error;
        ExpectShowable(dry.output + dry.error);
        EXPECT_EQ(Registry(), before) << "dry " << what;
        const Ended done = Run({"--json"}, outcome.words);
        EXPECT_EQ(done.status, outcome.status) << what << done.output << done.error;
        ExpectShowable(done.error);
        ASSERT_TRUE(Json::accept(done.output)) << what << done.output << done.error;
        const Json document = Json::parse(done.output);
        objects += document.dump() + "\n";
        const Json results = document.at("results");
        ASSERT_FALSE(results.empty()) << what << done.error;
        EXPECT_EQ(results.at(0).at("win32"), outcome.code) << what << done.error;
        EXPECT_THAT(std::string(results.at(0).at("text")), HasSubstr(outcome.text)) << what;
        EXPECT_EQ(outcome.status == 0, done.error.find("tvsc: ") == std::string::npos) << what << done.error;
    }
    void ExpectAll(const std::vector<Outcome> &outcomes) {
        for (const Outcome &outcome : outcomes) {
            Expect(outcome);
        }
    }
};

// A service that is not there, to every command that changes one.
std::vector<Words> CommandsOn(const std::string &name) {
    return {{"config", name, "--start", "auto"},
            {"enable", name},
            {"disable", name},
            {"mask", name},
            {"unmask", name},
            {"start", name},
            {"stop", name},
            {"restart", name},
            {"pause", name},
            {"continue", name},
            {"interrogate", name},
            {"control", name, "150"},
            {"kill", "TERM", name},
            {"reload", name},
            {"reset", name},
            {"handles", "drain", name},
            {"clone", name, "new"},
            {"edit", name},
            {"delete", name}};
}

TEST_F(TvscChanging, an_empty_database) {
    StartDaemon();
    for (const Words &words : CommandsOn("a")) {
        Expect({words, 5, ERROR_SERVICE_DOES_NOT_EXIST, "failed"});
    }
    ExpectAll({{{"lock", "release"}, 0, 0, "not locked"},
               {{"apply", File("a.toml", "[services.a]\nimage_path = '" + image + "'\n")}, 0, 0, "created"}});
}

TEST_F(TvscChanging, a_broken_database) {
    WriteService("a", SERVICE_DEMAND_START, image);
    WriteKey(servicesKey + "\\culprit", {{"Start", REG_DWORD, Dword(3)}});
    StartDaemon();
    Words::size_type offline = 0;
    for (const Words &words : CommandsOn("a")) {
        if (words[0] == "clone" || words[0] == "edit") {
            ++offline; // what is text goes into the registry
            Expect({words, 0, 0, "holds from the daemon's next start on"});
        } else {
            Expect({words, 6, ERROR_DATABASE_DOES_NOT_EXIST, "the daemon runs, but without its services"});
        }
    }
    EXPECT_EQ(offline, 2u);
    ExpectAll({{{"create", "b", "--image", image}, 6, ERROR_DATABASE_DOES_NOT_EXIST, "without its services"},
               {{"lock", "release"}, 6, ERROR_DATABASE_DOES_NOT_EXIST, "without its services"},
               {{"apply", File("a.toml", "[services.a]\nstart = 'auto'\n")}, 0, 0, "changed; holds from"},
               {{"apply", File("culprit.toml", "[services.culprit]\nimage_path = '" + image + "'\n")},
                0,
                0,
                "changed; holds from"}});
    EXPECT_EQ(Run({}, {"daemon", "stop"}).status, 0);
    StartDaemon();
    EXPECT_EQ(Run({}, {"list", "--names-only"}).output, "a\nculprit\nnew\n") << "mended by what apply has added";
}

TEST_F(TvscChanging, a_locked_database) {
    WriteService("a", SERVICE_DEMAND_START, image);
    StartDaemon();
    const pid_t holder = StartProgram({.command = {ProgramPath("tvsc"), "with-lock", "--", "/bin/sleep", "1000"}});
    ASSERT_TRUE(WaitUntil([] { return Run({"--json"}, {"lock", "status"}).output.find("true") != std::string::npos; }));
    ExpectAll({{{"create", "b", "--image", image}, 0, 0, "created"},
               {{"config", "a", "--display", "A"}, 0, 0, "changed"},
               {{"disable", "a"}, 0, 0, "start type disabled"},
               {{"enable", "a"}, 0, 0, "start type auto"},
               {{"start", "a"}, 152, ERROR_SERVICE_DATABASE_LOCKED, "not started"},
               {{"restart", "a"}, 152, 0, "already stopped"},
               {{"stop", "a"}, 0, 0, "already stopped"},
               {{"apply", File("a.toml", "[services.a]\nstart = 'demand'\n")}, 0, 0, "changed"},
               {{"clone", "a", "c"}, 0, 0, "created"},
               {{"delete", "c"}, 0, 0, "deleted"},
               {{"lock", "take", "--", "/bin/true"}, 152, ERROR_SERVICE_DATABASE_LOCKED, "failed", 0},
               {{"lock", "release"}, 0, 0, "freed the lock of root@"},
               {{"start", "a"}, 0, 0, "running"}});
    kill(holder, SIGTERM);
}

TEST_F(TvscChanging, a_cyclic_database) {
    WriteService("a", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("b\0\0", 3)}});
    WriteService("b", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("a\0\0", 3)}});
    WriteService("c", SERVICE_DEMAND_START, image, {{"DependOnGroup", REG_MULTI_SZ, std::string("a\0\0", 3)}});
    StartDaemon();
    ExpectAll({{{"start", "a"}, 6, ERROR_INVALID_HANDLE, "not started"},
               {{"start", "--with-deps", "c"}, 6, ERROR_CIRCULAR_DEPENDENCY, "its dependencies cannot be listed"},
               {{"stop", "a"}, 0, 0, "already stopped"},
               {{"enable", "a"}, 0, 0, "start type auto"},
               {{"mask", "a"}, 0, 0, "masked"},
               {{"unmask", "a"}, 0, 0, "unmasked"},
               {{"apply", File("d.toml", "[services.d]\nimage_path = '" + image + "'\ndepends_on = [ 'a' ]\n")},
                6,
                ERROR_CIRCULAR_DEPENDENCY,
                "not created",
                0},
               {{"config", "a", "--depends", ""}, 0, 0, "changed"},
               {{"start", "--with-deps", "c"}, 0, 0, "running"},
               {{"delete", "--stop", "--with-dependents", "a"}, 0, 0, "stopped"}});
}

TEST_F(TvscChanging, record_0_in_use) {
    StartDaemon();
    ExpectAll({{{"create", "zero", "--image", image}, 0, 0, "created"},
               {{"create", "zero", "--image", image}, 155, ERROR_SERVICE_EXISTS, "not created"},
               {{"config", "zero", "--display", "First"}, 0, 0, "changed"},
               {{"disable", "zero"}, 0, 0, "start type disabled"},
               {{"start", "zero"}, 6, ERROR_SERVICE_DISABLED, "not started"},
               {{"enable", "ZERO"}, 0, 0, "start type auto"},
               {{"mask", "First"}, 0, 0, "masked"},
               {{"unmask", "zero"}, 0, 0, "unmasked"},
               {{"start", "zero"}, 0, 0, "running"},
               {{"pause", "zero"}, 0, 0, "paused"},
               {{"continue", "zero"}, 0, 0, "running"},
               {{"control", "zero", "150"}, 0, 0, "running"},
               {{"restart", "zero"}, 0, 0, "stopped"},
               {{"delete", "zero"}, 1, ERROR_SERVICE_ALREADY_RUNNING, "running; use --stop"},
               {{"clone", "zero", "one"}, 0, 0, "created"},
               {{"edit", "zero"}, 0, 0, "changed"},
               {{"reset", "zero"}, 0, 0, "stopped, 1067"},
               {{"reset", "--kill", "zero", "-y"}, 0, 0, "ended process"},
               {{"delete", "zero"}, 0, 0, "deleted"}});
}

TEST_F(TvscChanging, names_of_other_scripts_and_of_bytes_that_are_no_text) {
    StartDaemon();
    for (const std::string &name : {std::string("веб-сервер"), std::string("网络 服务"), std::string("\xFF\xFE-x"),
                                    std::string("a\x1B[31mb"), std::string("-dash")}) {
        const std::string named = "--name=" + name;
        ExpectAll({{{"create", named, "--image", image, "--display", name + " shown"}, 0, 0, "created"},
                   {{"config", named, "--group", name}, 0, 0, "changed"},
                   {{"disable", named}, 0, 0, "start type disabled"},
                   {{"enable", named}, 0, 0, "start type auto"},
                   {{"mask", named}, 0, 0, "masked"},
                   {{"unmask", named}, 0, 0, "unmasked"},
                   {{"start", named}, 0, 0, "running"},
                   {{"kill", "CONT", named}, 0, 0, "sent CONT to process"},
                   {{"stop", named}, 0, 0, "stopped"},
                   {{"edit", named}, 0, 0, "changed"},
                   {{"clone", named, "--new-name=" + name + "-2"}, 0, 0, "created"}});
        const std::string file = File("text", Run({}, {"export", named}).output);
        ExpectAll({{{"apply", file}, 0, 0, "unchanged"},
                   {{"delete", named}, 0, 0, "deleted"},
                   {{"delete", named}, 5, ERROR_SERVICE_DOES_NOT_EXIST, "failed"}});
    }
}

TEST_F(TvscChanging, two_thousand_services) {
    constexpr int many = 2000;
    std::string text;
    for (int i = 0; i < many; ++i) {
        text += "[services.service-" + std::to_string(i) + "]\nimage_path = '" + image + "'\n";
    }
    EXPECT_EQ(Run({}, {"apply", File("many.toml", text)}).status, 0) << "into the registry alone";
    StartDaemon(120'000); // a busy machine reads so many for a while
    ExpectAll({{{"enable", "service-1?"}, 0, 0, "start type auto"},
               {{"disable", "service-19*"}, 0, 0, "start type disabled"},
               {{"mask", "service-2000", "service-1999"}, 5, ERROR_SERVICE_DOES_NOT_EXIST, "failed"},
               {{"start", "service-1999"}, 6, ERROR_SERVICE_DISABLED, "not started"},
               {{"clone", "service-7", "new"}, 0, 0, "created"},
               {{"delete", "service-1[0-4]?"}, 0, 0, "deleted"},
               {{"apply", folder + "/many.toml"}, 0, 0, "unchanged"}});
    EXPECT_EQ(Json::parse(Run({"--json"}, {"list", "--brief"}).output).at("services").size(), many + 1);
}

} // namespace
