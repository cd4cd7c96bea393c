// SPDX-License-Identifier: MIT
// What the command line of the services prints as JSON, against its schemas.
#include "tests/support/json_schema.h"
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

namespace {

using Json = nlohmann::json;

// What they write is a text of its own, or another program's.
const std::set<std::string> hasNoJson = {"completion", "help", "with-lock"};

// Each command as it is typed, "lock take", as the completion knows them: but for those that others stand below, and
// the verbs of sc, which has one JSON for what is wrong.
std::vector<std::string> EveryCommand() {
    const std::string script = RunAndRead({.command = {ProgramPath("tvsc"), "completion", "bash"}}).output;
    const std::regex arm("\n    '([^']+)'[^)]*\\) options='[^']*' below='([^']*)'");
    std::vector<std::string> commands;
    for (std::sregex_iterator one(script.begin(), script.end(), arm), end; one != end; ++one) {
        const std::string command = (*one)[1];
        const bool isParent = (*one)[2].length() != 0 && command != "sc" && command != "help";
        if (!isParent && !command.starts_with("sc ")) commands.push_back(command);
    }
    EXPECT_GT(commands.size(), 50u) << script;
    return commands;
}

struct TvscJson : ServiceWorld {
    const std::string odd = name + "-\xFF";
    std::string lines; // a document each

    // What a command prints, whatever it exits with.
    void Take(const std::vector<std::string> &words, const std::vector<std::string> &environment = {}) {
        std::vector<std::string> command = {ProgramPath("tvsc"), "--json"};
        command.insert(command.end(), words.begin(), words.end());
        const Ended ended = RunAndRead({.command = command, .environment = environment}, 90000);
        ASSERT_TRUE(Json::accept(ended.output)) << words[0] << ": " << ended.output << ended.error;
        lines += Json::parse(ended.output).dump() + "\n";
    }

    // Services of every kind: one without UTF-8 in any of its texts, one that tvhost runs, a ring.
    void MakeServices() {
        CreateSample(odd, "", {"--display", "\xFE", "--group", "\xFD", "--user", "root"});
        WriteKey(servicesKey + "\\" + odd, {{"Description", REG_SZ, Sz("\xFC")},
                                            {"RequiredPrivileges", REG_MULTI_SZ, MultiSz({"\xFB", "b"})},
                                            {"\xFA", REG_MULTI_SZ, MultiSz({"\xF9"})},
                                            {"n", REG_QWORD, "12345678"},
                                            {"FailureActions", REG_BINARY, "\x01"}});
        WriteKey(servicesKey + "\\" + odd + "\\Empty\xF8", {});
        Do({"create", name + "-hosted", "--exec", "/bin/sh -c 'echo \xFF; exec sleep 1000'", "--group", "g"});
        Do({"sc", "failure", name + "-hosted", "reset=", "1", "actions=", "restart/1"});
        Do({"start", odd, name + "-hosted"});
        CreateSample(name + "-needs", "", {"--depends", odd + ",+g", "--start", "auto"});
    }
};

TEST_F(TvscJson, of_every_command_is_as_its_schema_says) {
    MakeServices();
    const std::string file = folder + "/text.toml", hosted = name + "-hosted", needs = name + "-needs";
    WriteFile(file, Do({"export", odd}));
    const std::vector<std::vector<std::string>> commands = {{"list"},
                                                            {"list", "--brief"},
                                                            {"list", "nosuch"},
                                                            {"status", odd, hosted},
                                                            {"status", "--probe", odd},
                                                            {"show", odd, hosted},
                                                            {"is-active", odd},
                                                            {"is-failed", odd},
                                                            {"is-healthy"},
                                                            {"wait", odd},
                                                            {"start", odd},
                                                            {"start", "is-activ"},
                                                            {"strat"},
                                                            {"start", "--nosuch"},
                                                            {"interrogate", odd},
                                                            {"control", odd, "200"},
                                                            {"deps", needs},
                                                            {"dependents", odd},
                                                            {"name", odd},
                                                            {"order"},
                                                            {"plan", "start", needs},
                                                            {"plan", "stop", odd},
                                                            {"plan", "restart", odd},
                                                            {"plan", "boot"},
                                                            {"create", name + "-3", "--image", "/none"},
                                                            {"pause", odd},
                                                            {"continue", odd},
                                                            {"mask", needs},
                                                            {"unmask", needs},
                                                            {"disable", needs},
                                                            {"--dry-run", "restart", odd},
                                                            {"tree"},
                                                            {"graph", needs},
                                                            {"doctor"},
                                                            {"explain", "1053"},
                                                            {"explain", odd},
                                                            {"leftovers"},
                                                            {"logs", hosted},
                                                            {"list", "--all"},
                                                            {"daemon", "rpcinfo"},
                                                            {"graph", "--format", "json", needs},
                                                            {"timeline"},
                                                            {"ping", "-c", "2"},
                                                            {"wait-online"},
                                                            {"daemon", "status"},
                                                            {"lock", "status"},
                                                            {"lock", "release"},
                                                            {"--dry-run", "lock", "take"},
                                                            {"--dry-run", "daemon", "stop"},
                                                            {"handles", "drain", odd},
                                                            {"prepare"},
                                                            {"export"},
                                                            {"export", odd, "nosuch"},
                                                            {"apply", file},
                                                            {"--dry-run", "apply", "--prune", file},
                                                            {"apply", folder + "/none"},
                                                            {"clone", odd, odd + "-2"},
                                                            {"edit", odd},
                                                            {"config", odd, "--start", "auto"},
                                                            {"enable", odd},
                                                            {"kill", "CONT", odd},
                                                            {"reload", hosted},
                                                            {"sc", "query"},
                                                            {"--host", "localhost,nosuch.invalid", "status", odd},
                                                            {"watch", "--count", "1", "--initial", odd},
                                                            {"stop", odd},
                                                            {"reset", odd},
                                                            {"delete", odd}};
    for (const std::vector<std::string> &words : commands) {
        Take(words, {"VISUAL=sed -i s/demand/auto/"});
    }
    Take({"status", "zero", "--host", "nosuch.invalid"});
    for (const std::string &command : EveryCommand()) {
        const bool isHeld = std::any_of(commands.begin(), commands.end(), [&](const std::vector<std::string> &words) {
            std::string line;
            for (const std::string &word : words) {
                if (!word.starts_with("--")) line += word + " ";
            }
            return line.starts_with(command + " ");
        });
        EXPECT_NE(isHeld, hasNoJson.contains(command)) << command;
    }
    const std::string rows = Do({"--format", "tsv", "daemon", "rpcinfo"});
    EXPECT_NE(rows.find("\nservd\t1073741824\t1\ttcp\t"), std::string::npos) << rows;
    const Ended held = HoldAgainstSchemas("tvsc", lines, folder, true);
    if (held.status == noValidator) GTEST_SKIP() << "python3-jsonschema is not installed";
    EXPECT_EQ(held.status, 0) << held.error;
}

// A journalctl of this test's own stands before that of the machine, which need not have one.
TEST_F(TvscJson, of_what_stands_in_the_journal_is_as_its_schema_says) {
    const std::string socket = "/run/systemd/journal/socket", bin = folder + "/bin";
    ASSERT_FALSE(std::filesystem::exists(socket)) << "the journal of the machine is seen here";
    std::filesystem::create_directories("/run/systemd/journal");
    std::filesystem::create_directory(bin);
    WriteFile(socket, "");
    const auto journal = [&](const std::string &body) {
        WriteFile(bin + "/journalctl", "#!/bin/sh\necho \"$@\" >" + folder + "/asked\n" + body, 0755);
        return RunAndRead({.command = {ProgramPath("tvsc"), "--json", "logs", "-n", "7", name},
                           .environment = {"PATH=" + bin + ":/usr/bin:/bin"}});
    };
    const Ended told = journal(R"(cat <<'END'
{"MESSAGE":"first \"line\"","__REALTIME_TIMESTAMP":"1700000000123456"}
{"MESSAGE":[104,105,255],"__REALTIME_TIMESTAMP":"1700000001000000"}
no JSON at all
{"PRIORITY":"6"}
END
)");
    EXPECT_EQ(told.status, 0) << told.error;
    EXPECT_EQ(ReadFile(folder + "/asked"), "--no-pager -t " + name + " -n7 -o json --output-fields=MESSAGE\n");
    std::istringstream stream(told.output);
    std::vector<Json> entries;
    for (std::string line; std::getline(stream, line);) {
        entries.push_back(Json::parse(line));
    }
    ASSERT_EQ(entries.size(), 3u) << told.output;
    EXPECT_EQ(entries[0].at("text"), "first \"line\"");
    EXPECT_EQ(entries[0].at("time"), "2023-11-14T22:13:20.123Z");
    EXPECT_EQ(entries[0].at("name"), name);
    EXPECT_EQ(entries[1].at("text_bytes"), "aGn/");
    EXPECT_EQ(entries[2].at("time"), nullptr);
    const Ended held = HoldAgainstSchemas("tvsc", told.output, folder, false);
    EXPECT_TRUE(held.status == 0 || held.status == noValidator) << held.error;

    const Ended failed = journal("exit 3\n");
    EXPECT_EQ(failed.status, 5); // as for a service that has no log
    EXPECT_NE(failed.error.find("journalctl: has failed"), std::string::npos) << failed.error;
    std::filesystem::remove(bin + "/journalctl");
    std::filesystem::remove(socket);
}

} // namespace
