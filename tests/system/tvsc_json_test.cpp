// SPDX-License-Identifier: MIT
// What the command line of the services prints as JSON, against its schemas.
#include "tests/support/json_schema.h"
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

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
    const std::string rows = Do({"--format", "tsv", "daemon", "rpcinfo"});
    EXPECT_NE(rows.find("\nservd\t1073741824\t1\ttcp\t"), std::string::npos) << rows;
    const Ended held = HoldAgainstSchemas("tvsc", lines, folder, true);
    if (held.status == noValidator) GTEST_SKIP() << "python3-jsonschema is not installed";
    EXPECT_EQ(held.status, 0) << held.error;
}

} // namespace
