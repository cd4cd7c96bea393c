// SPDX-License-Identifier: MIT
// Automatic start with the real programs: a registry in tvregd, servd, csh and service processes. All services of a
// test share one image, and thus one log, which tells the order of their starts.
#include "tests/support/host.h"
#include "tests/support/service_image.h"

#include "tv/winerror.h"
#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <random>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::uint32_t automatic = SERVICE_AUTO_START;
constexpr std::uint32_t demand = SERVICE_DEMAND_START;
constexpr int bootMs = 60000;

RegistryValue DependsOn(const std::vector<std::string> &names) {
    return {"DependOnGroup", REG_MULTI_SZ, MultiSz(names)};
}
RegistryValue Group(const std::string &name) { return {"Group", REG_SZ, Sz(name)}; }
RegistryValue Tag(std::uint32_t tag) { return {"Tag", REG_DWORD, Dword(tag)}; }
RegistryValue Account(const std::string &name) { return {"DependOnService", REG_SZ, Sz(name)}; }

struct AutomaticStart : testing::Test {
    AutomaticStart() { StartRegistryDaemon(MakeScratchFolder() + "/registry"); }
    ~AutomaticStart() override { EndAllProcesses(); }

    ServiceImage image = MakeServiceImage("image");

    // Names in the order of the start requests.
    std::vector<std::string> Started(std::size_t count) const {
        std::vector<std::string> names;
        for (const std::string &line : LogLines(image, "start", count)) {
            names.push_back(line.substr(0, line.find(' ')));
        }
        return names;
    }
};

// State of every service in the listing.
std::map<std::string, std::int32_t> States() {
    const RpcClient client = DialServiceDaemon();
    auto listing = CallForAnswer(client.get(), servd_SERV_ENUM_STATUS_SERVICE{.resumeIndex = 0,
                                                                              .typeFilter = SERVICE_WIN32,
                                                                              .stateFilter = SERVICE_STATE_ALL,
                                                                              .bufferBytes = 1 << 20});
    std::map<std::string, std::int32_t> states;
    for (const svd_enum_status_list_t *record = listing->services; record != nullptr; record = record->next) {
        states[record->name] = record->status.dwCurrentState;
    }
    return states;
}

std::int32_t Connect() {
    const RpcClient client = DialServiceDaemon();
    return CallForAnswer(client.get(), servd_SERV_CONNECT_SERVICE{.machineName = Text("")})->status;
}

TEST_F(AutomaticStart, gamma_beta_alpha) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta"})});
    WriteService("Beta", demand, image.path, {DependsOn({"Gamma"})});
    WriteService("Gamma", SERVICE_DISABLED, image.path);
    WriteService("Delta", demand, image.path);
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(3), ElementsAre("Gamma", "Beta", "Alpha"));
    EXPECT_THAT(States(),
                UnorderedElementsAre(Pair("Alpha", SERVICE_START_PENDING), Pair("Beta", SERVICE_START_PENDING),
                                     Pair("Gamma", SERVICE_START_PENDING), Pair("Delta", SERVICE_STOPPED)));
    EXPECT_EQ(Connect(), 0);
}

TEST_F(AutomaticStart, start_requests_carry_record_numbers_and_no_arguments) {
    WriteService("Alpha", automatic, image.path);
    WriteService("Beta", SERVICE_BOOT_START, image.path);
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(LogLines(image, "start", 2), ElementsAre("Alpha 1 0", "Beta 2 0"));
}

TEST_F(AutomaticStart, a_service_that_is_automatic_and_a_dependency_starts_once) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta"})});
    WriteService("Beta", automatic, image.path);
    WriteService("Gamma", SERVICE_SYSTEM_START, image.path, {DependsOn({"Beta", "Alpha"})});
    const pid_t daemon = StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(3), ElementsAre("Beta", "Alpha", "Gamma"));
    EXPECT_EQ(ChildrenOf(daemon, "test_service").size(), 3u);
}

TEST_F(AutomaticStart, a_dependency_that_fails_to_start_stops_nobody) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta", "Gamma"})});
    WriteService("Beta", demand, image.path, {Account("no-such-user")});
    WriteService("Gamma", demand, image.path);
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(2), ElementsAre("Gamma", "Alpha"));
    EXPECT_EQ(States()["Beta"], SERVICE_STOPPED);
}

TEST_F(AutomaticStart, a_cycle_stops_nobody) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta"})});
    WriteService("Beta", automatic, image.path, {DependsOn({"Alpha"})});
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(2), ElementsAre("Alpha", "Beta"));
}

TEST_F(AutomaticStart, members_of_a_group_start_in_the_order_of_its_tags) {
    WriteKey(groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz({"Network", "Disk"})}});
    WriteKey(groupTagsKey, {{"Disk", REG_BINARY, Dword(3) + Dword(2) + Dword(3) + Dword(1)}});
    WriteService("one", demand, image.path, {Group("Disk"), Tag(1)});
    WriteService("two", demand, image.path, {Group("Disk"), Tag(2)});
    WriteService("three", demand, image.path, {Group("Disk"), Tag(3)});
    WriteService("untagged", demand, image.path, {Group("Disk"), Tag(9)});
    WriteService("user", automatic, image.path, {DependsOn({"+Disk"})});
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(5), ElementsAre("two", "three", "one", "untagged", "user"));
}

TEST_F(AutomaticStart, prompt_services_do_not_wait_for_each_other) {
    for (int number = 0; number < 30; number++) {
        WriteService("service" + std::to_string(number), automatic, image.path);
    }
    const std::int64_t begin = MonotonicMs();
    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Started(30).size(), 30u);
    EXPECT_LT(MonotonicMs() - begin, 25000) << "a second each, were the first attempt made at once";
}

TEST_F(AutomaticStart, a_service_with_DeleteFlag_is_gone_and_never_started) {
    WriteService("Alpha", automatic, image.path, {{"DeleteFlag", REG_DWORD, Dword(1)}});
    WriteKey(servicesKey + "\\Alpha\\Parameters", {{"Program", REG_SZ, Sz("/bin/true")}});
    WriteService("Beta", automatic, image.path);
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(LogLines(image, "start"), ElementsAre("Beta 1 0"));
    EXPECT_FALSE(KeyExists(servicesKey + "\\Alpha"));
}

TEST_F(AutomaticStart, a_service_without_display_name_makes_1065_and_nothing_starts_deliberate) {
    WriteService("Alpha", automatic, image.path);
    WriteService("Beta", automatic, image.path);
    DeleteValue(servicesKey + "\\Beta", "DisplayName");
    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Connect(), ERROR_DATABASE_DOES_NOT_EXIST);
    EXPECT_FALSE(HasLog(image));
    EXPECT_THAT(States(), testing::Contains(Pair("Alpha", SERVICE_STOPPED))) << "the daemon serves what it has read";
}

TEST_F(AutomaticStart, without_services_the_daemon_comes_up_empty) {
    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Connect(), 0);
    EXPECT_THAT(States(), testing::IsEmpty());
    EXPECT_TRUE(KeyExists(servicesKey)) << "made by the load";
}

// --- what tvsc says beforehand ---

Ended Order(const std::vector<std::string> &further = {}) {
    std::vector<std::string> command = {ProgramPath("tvsc"), "order"};
    command.insert(command.end(), further.begin(), further.end());
    return RunAndRead({.command = command});
}

std::vector<std::string> EachIn(const nlohmann::json &list, const char *key) {
    std::vector<std::string> values;
    for (const auto &entry : list) {
        values.push_back(entry.at(key));
    }
    return values;
}

TEST_F(AutomaticStart, the_order_told_beforehand_is_the_one_that_comes) {
    WriteKey(groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz({"Network", "Disk"})}});
    WriteKey(groupTagsKey, {{"Disk", REG_BINARY, Dword(2) + Dword(2) + Dword(1)}});
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta", "nobody"}), Group("Network")});
    WriteService("Gone", automatic, image.path, {{"DeleteFlag", REG_DWORD, Dword(1)}});
    WriteService("Beta", demand, image.path, {DependsOn({"+Disk"})});
    WriteService("one", SERVICE_DISABLED, image.path, {Group("Disk"), Tag(1)});
    WriteService("two", automatic, image.path, {Group("Disk"), Tag(2)});
    WriteService("Delta", SERVICE_BOOT_START, image.path, {DependsOn({"Epsilon"})});
    WriteService("Epsilon", automatic, image.path, {DependsOn({"Delta"})});
    WriteService("idle", demand, image.path);

    const Ended ended = Order({"--json"});
    ASSERT_EQ(ended.status, 0) << ended.error;
    const auto plan = nlohmann::json::parse(ended.output);
    const std::vector<std::string> told = EachIn(plan.at("steps"), "name");
    EXPECT_TRUE(KeyExists(servicesKey + "\\Gone")) << "the plan changes nothing";

    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(6), ElementsAre("two", "one", "Beta", "Alpha", "Delta", "Epsilon"));
    EXPECT_EQ(told, Started(6));

    const auto &first = plan.at("steps").at(0);
    EXPECT_EQ(first.at("reason"), "dependency");
    EXPECT_EQ(first.at("needed_by"), "Beta");
    EXPECT_EQ(first.at("through_group"), "Disk");
    EXPECT_EQ(first.at("started_for"), "Alpha");
    EXPECT_EQ(first.at("record"), 4);
    EXPECT_EQ(plan.at("steps").at(3).at("reason"), "automatic");
    EXPECT_EQ(plan.at("deleted"), nlohmann::json::array({"Gone"}));
    EXPECT_EQ(plan.at("services"), 7);
    EXPECT_THAT(EachIn(plan.at("remarks"), "kind"), UnorderedElementsAre("unknown_service", "disabled", "ring"));
}

// Services that depend on each other and on groups at random, rings and unknown names among them.
void WriteRandomServices(std::mt19937 &random, const ServiceImage &image, std::uint32_t count) {
    const auto below = [&random](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    const auto group = [&below] { return "group " + std::to_string(below(5)); };
    WriteKey(groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz({group(), group(), group()})}});
    WriteKey(groupTagsKey, {{group(), REG_BINARY, Dword(3) + Dword(below(4)) + Dword(below(4)) + Dword(below(4))}});
    for (std::uint32_t number = 0; number < count; number++) {
        std::vector<RegistryValue> values;
        std::vector<std::string> dependencies;
        for (std::uint32_t left = below(3); left > 0; left--) {
            dependencies.push_back(below(6) == 0 ? "+" + group() : "s" + std::to_string(below(count + 2)));
        }
        if (!dependencies.empty()) values.push_back(DependsOn(dependencies));
        if (below(2) == 0) values.push_back(Group(group()));
        if (below(2) == 0) values.push_back(Tag(below(4)));
        if (below(10) == 0) values.push_back({"DeleteFlag", REG_DWORD, Dword(1)});
        WriteService("s" + std::to_string(number), below(5), image.path, values);
    }
}

TEST_F(AutomaticStart, the_order_of_random_services_is_the_one_that_comes) {
    std::mt19937 random(20261121);
    WriteRandomServices(random, image, 60);
    const Ended ended = Order({"--json"});
    ASSERT_EQ(ended.status, 0) << ended.error;
    const auto plan = nlohmann::json::parse(ended.output);
    const std::vector<std::string> told = EachIn(plan.at("steps"), "name");
    ASSERT_GE(told.size(), 20u);
    ASSERT_THAT(ended.output, AllOf(HasSubstr("\"through_group\""), HasSubstr("\"ring\""), HasSubstr("\"disabled\"")))
        << "nothing but simple cases";

    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Started(told.size()), told);
    std::size_t running = 0;
    for (const auto &[name, state] : States()) {
        running += state != SERVICE_STOPPED ? 1 : 0;
    }
    EXPECT_EQ(running, told.size()) << "and no further one";
}

TEST_F(AutomaticStart, the_order_gives_each_service_its_reason) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta"})});
    WriteService("Beta", SERVICE_DISABLED, image.path);
    const Ended ended = Order();
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(ended.output, "#  SERVICE  START     WHY                   WORST CASE  LAUNCHER\n"
                            "1  Beta     disabled  needed by Alpha       55 s        " +
                                image.path +
                                "\n"
                                "2  Alpha    auto      automatic (record 1)  55 s        " +
                                image.path +
                                "\n"
                                "! Beta: disabled, but started, since Alpha needs it\n"
                                "2 of 2 services started with the daemon, which answers nobody before that is done: "
                                "about 1 min 50 s at worst.\n");
    EXPECT_EQ(RunAndRead({.command = {ProgramPath("tvsc"), "plan", "boot"}}).output, ended.output);
}

TEST_F(AutomaticStart, groups_do_not_order_automatic_services_and_that_is_told_deliberate) {
    WriteKey(groupOrderKey, {{"List", REG_MULTI_SZ, MultiSz({"first", "second"})}});
    WriteService("Alpha", automatic, image.path, {Group("second")});
    WriteService("Beta", automatic, image.path, {Group("first")});
    EXPECT_THAT(
        Order().output,
        HasSubstr("\n! Beta: comes after Alpha, whose group is a later one: the order of groups is not followed\n"));
    EXPECT_THAT(Order({"--json"}).output, HasSubstr("\"group_order\""));
    StartServiceDaemon({}, bootMs);
    EXPECT_THAT(Started(2), ElementsAre("Alpha", "Beta"));
}

TEST_F(AutomaticStart, a_service_without_an_image_path_fails_as_told) {
    WriteService("Alpha", automatic, image.path, {DependsOn({"Beta"})});
    WriteService("Beta", demand, "");
    DeleteValue(servicesKey + "\\Beta", "ImagePath");
    const Ended ended = Order();
    EXPECT_THAT(ended.output, HasSubstr("\n! Beta: has no image path: its start fails\n"));
    const std::int64_t begin = MonotonicMs();
    StartServiceDaemon({}, bootMs);
    EXPECT_GE(MonotonicMs() - begin, 30000) << "it is tried all the same";
    EXPECT_THAT(Started(1), ElementsAre("Alpha"));
    EXPECT_THAT(States(), UnorderedElementsAre(Pair("Alpha", SERVICE_START_PENDING), Pair("Beta", SERVICE_STOPPED)));
}

TEST_F(AutomaticStart, the_order_of_a_broken_database_is_why_nothing_starts) {
    WriteService("Alpha", automatic, image.path);
    WriteService("Beta", automatic, image.path);
    DeleteValue(servicesKey + "\\Beta", "DisplayName");
    const Ended ended = Order();
    EXPECT_EQ(ended.status, 6);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, AllOf(HasSubstr("Beta: DisplayName cannot be read (2 ERROR_FILE_NOT_FOUND"),
                                   HasSubstr("1065 ERROR_DATABASE_DOES_NOT_EXIST")));
}

// Symptom: after its next start the daemon answered 1065 to everybody. Cause: the key that an event source had brought
// along is a service without values.
TEST_F(AutomaticStart, the_key_of_the_event_sources_costs_no_service) {
    WriteService("Alpha", automatic, image.path);
    WriteKey(servicesKey + "\\EventLog\\Application\\Alpha", {{"TypesSupported", REG_DWORD, Dword(7)}});
    EXPECT_THAT(Order().output, HasSubstr("\n1 of 2 services started"));
    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Connect(), 0);
    EXPECT_THAT(States(), UnorderedElementsAre(Pair("Alpha", SERVICE_START_PENDING))) << "it is not listed";
}

TEST_F(AutomaticStart, what_the_order_says_mends_a_key_that_is_no_service) {
    WriteService("Alpha", automatic, image.path);
    const std::string odd = "it's odd";
    WriteKey(servicesKey + "\\" + odd + "\\more", {});
    const Ended broken = Order();
    EXPECT_EQ(broken.status, 6);
    EXPECT_THAT(broken.error, HasSubstr("it's odd: "));
    const Ended doctor = RunAndRead({.command = {ProgramPath("tvsc"), "doctor"}});
    EXPECT_THAT(doctor.output, AllOf(HasSubstr("it's odd"), HasSubstr("(1065)"), HasSubstr("tvreg add ")));
    std::string commands = "PATH=" + ProgramPath("").substr(0, ProgramPath("").rfind('/')) + ":$PATH; set -e\n";
    std::istringstream lines(broken.error);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("    tvreg add ")) commands += line + "\n";
    }
    EXPECT_EQ(RunProgram({.command = {"/bin/sh", "-c", commands}}), 0) << commands;
    EXPECT_THAT(Order().output, HasSubstr("\n1 of 2 services started"));
    StartServiceDaemon({}, bootMs);
    EXPECT_EQ(Connect(), 0);
}

TEST(AutomaticStartAlone, without_a_registry_daemon_the_order_is_not_told) {
    const Ended ended = Order({"--json"});
    EXPECT_EQ(ended.status, 150);
    EXPECT_EQ(nlohmann::json::parse(ended.output).at("errors").at(0).at("win32"), ERROR_REGISTRY_IO_FAILED);
    EXPECT_THAT(ended.error, HasSubstr("the registry daemon does not answer"));
}

} // namespace
