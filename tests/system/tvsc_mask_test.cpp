// SPDX-License-Identifier: MIT
// Services that nobody can start, and services that are reset together with what is left of them; against both daemons
// and real service processes.
#include "svcapi/process_stat.h"
#include "tests/support/service_world.h"
#include "tests/support/value_bytes.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using Json = nlohmann::json;

constexpr char accountValue[] = "DependOnService";

struct TvscMask : ServiceWorld {
    std::string KeyOf(const std::string &service) { return servicesKey + "\\" + service; }
    std::string ScriptOf(const std::string &service) { return folder + "/" + service + ".csh"; }
    std::string Fail(int status, std::vector<std::string> arguments) {
        const Ended ended = Tvsc(std::move(arguments));
        EXPECT_EQ(ended.status, status) << ended.output << ended.error;
        return ended.error;
    }
    Json StatusOf(const std::string &service) {
        return Json::parse(Tvsc({"status", service, "--json"}).output).at("services").at(0);
    }
    std::string StateOf(const std::string &service) { return StatusOf(service).at("state"); }
    std::string AccountOf(const std::string &service) { return ReadValue(KeyOf(service), accountValue)->data; }
};

// --- masked services -----------------------------------------------------------------------------------------------

TEST_F(TvscMask, nobody_starts_a_masked_service) {
    CreateSample(name);
    CreateSample(name + "-needs", "", {"--depends", name});
    EXPECT_EQ(Do({"--dry-run", "mask", name}), name + ": would be masked\n");
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
    EXPECT_EQ(Do({"mask", name}), name + ": masked\n");
    EXPECT_EQ(Do({"mask", name}), name + ": masked already\n");
    for (const std::vector<std::string> &start : {std::vector<std::string>{"start", name},
                                                  {"start", "--force", name},
                                                  {"start", "--with-deps", name + "-needs"}}) {
        EXPECT_THAT(Fail(6, start), AllOf(HasSubstr(name + ": not started: it is masked: 1058"),
                                          HasSubstr("try: tvsc unmask " + name)));
    }
    EXPECT_EQ(Tvsc({"sc", "start", name}).status, 3) << "a client that asks the daemon straight";
    EXPECT_EQ(StateOf(name), "stopped");
    EXPECT_EQ(ReadLog(name), "") << "its program was never run";
    EXPECT_THAT(Tvsc({"doctor"}).output, HasSubstr("it is masked"));
    EXPECT_EQ(Do({"unmask", name}), name + ": unmasked\n");
    EXPECT_EQ(Do({"unmask", name}), name + ": not masked\n");
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
    EXPECT_EQ(Do({"start", "--with-deps", name + "-needs"}), name + ": running\n" + name + "-needs: running\n");
}

TEST_F(TvscMask, a_masked_service_keeps_its_account_and_its_start_type) {
    CreateSample(name, "", {"--user", "root", "--start", "auto"});
    Do({"mask", name});
    EXPECT_EQ(AccountOf(name), Sz(":masked:root"));
    EXPECT_THAT(Fail(6, {"config", name, "--user", "daemon"}), HasSubstr("it is masked; first: tvsc unmask " + name));
    const std::string file = folder + "/" + name + ".toml";
    WriteFile(file, Do({"export", name}));
    EXPECT_EQ(Do({"apply", file}), name + ": unchanged\n");
    Do({"delete", "--wait", name});
    EXPECT_EQ(Do({"apply", file}), name + ": created\n");
    EXPECT_EQ(AccountOf(name), Sz(":masked:root")) << "what is exported masked comes back masked";
    EXPECT_EQ(Do({"clone", name, name + "-2"}), name + "-2: created\n");
    EXPECT_THAT(Fail(6, {"start", name + "-2"}), HasSubstr("it is masked"));
    Do({"unmask", name});
    EXPECT_EQ(AccountOf(name), Sz("root"));
    EXPECT_EQ(ReadValue(KeyOf(name), "Start")->data, Dword(SERVICE_AUTO_START));
    EXPECT_EQ(Do({"start", name}), name + ": running\n");
}

TEST_F(TvscMask, a_running_service_runs_on_when_it_is_masked_and_is_not_restarted) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    Do({"mask", name});
    EXPECT_THAT(Fail(6, {"restart", name}), HasSubstr(name + ": not restarted: it is masked"));
    EXPECT_EQ(ProcessOf(name), process) << "a restart that cannot start again stops nothing";
    EXPECT_EQ(Do({"stop", name}), name + ": stopped\n");
}

TEST_F(TvscMask, a_restart_of_a_disabled_service_stops_nothing_unless_it_is_forced) {
    CreateSample(name);
    Do({"start", name});
    const pid_t process = ProcessOf(name);
    Do({"disable", name});
    EXPECT_THAT(Fail(6, {"restart", name}),
                AllOf(HasSubstr("1058"), HasSubstr("tvsc restart --force " + name), Not(HasSubstr("masked"))));
    EXPECT_EQ(ProcessOf(name), process);
    Do({"restart", "--force", name});
    EXPECT_NE(ProcessOf(name), process);
}

// The daemon hands the start of such a service to a process that may run already.
TEST_F(TvscMask, a_service_of_a_shared_process_cannot_be_masked) {
    CreateSample(name, "", {"--type", "share"});
    EXPECT_THAT(Fail(1, {"mask", name}), HasSubstr("of a shared process"));
    EXPECT_FALSE(ReadValue(KeyOf(name), accountValue));
}

} // namespace
