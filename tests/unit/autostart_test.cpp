// SPDX-License-Identifier: MIT
// Automatic start: which services are started and in which order. The starter itself is one of this test's own, which
// only keeps a list.
#include "tests/support/memory_registry.h"

#include <gmock/gmock.h>

#include <set>

namespace {

std::vector<std::string> started;
std::set<std::string> refused;      // names whose start fails
std::vector<std::string> leftovers; // arguments other than none

} // namespace

Win32Code QuickStartService(std::int32_t index, svc_arglist_t *arglist, std::int32_t argc) {
    const std::string name = svcdb[index].name;
    started.push_back(name);
    if (arglist != nullptr || argc != 0) leftovers.push_back(name);
    if (refused.contains(name)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    svcdb[index].status.dwCurrentState = SERVICE_START_PENDING;
    return ERROR_SUCCESS;
}

namespace {

using testing::ElementsAre;

struct AutoStart : MemoryRegistryTest {
    AutoStart() {
        started.clear();
        refused.clear();
        leftovers.clear();
    }
    ~AutoStart() override { EXPECT_THAT(leftovers, ElementsAre()) << "starts have no arguments"; }

    // Loads what is installed and starts it.
    void LoadAndRun() {
        ASSERT_EQ(ReadGroupOrderList(&firstunorderedgroupindex), 0u);
        ASSERT_EQ(ReadServiceDatabase(), 0u);
        ASSERT_EQ(SortServicesInGroups(), 0u);
        ForgetCalls();
        EXPECT_EQ(RunAutoStartServices(), 0u);
        for (std::int32_t index = 0; index < svcdbsize; index++) {
            EXPECT_EQ(svcdb[index].visiting, 0);
            EXPECT_EQ(svcdb[index].visited, 0);
        }
        EXPECT_THAT(OpenKeys(), ElementsAre());
    }
};

constexpr DWORD automatic = SERVICE_AUTO_START;
constexpr DWORD demand = SERVICE_DEMAND_START;

TEST_F(AutoStart, an_empty_database_opens_and_closes_the_services_key) {
    LoadAndRun();
    EXPECT_THAT(RegistryCalls(), ElementsAre("open " + servicesPath, "close " + servicesPath));
}

TEST_F(AutoStart, start_types_0_1_and_2_are_started_and_no_other) {
    InstallService("boot", {.start = SERVICE_BOOT_START});
    InstallService("system", {.start = SERVICE_SYSTEM_START});
    InstallService("auto", {.start = automatic});
    InstallService("demand", {.start = demand});
    InstallService("disabled", {.start = SERVICE_DISABLED});
    InstallService("five", {.start = 5});
    InstallService("minus one", {.start = 0xFFFFFFFFu});
    InstallService("none");
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("boot", "system", "auto"));
}

TEST_F(AutoStart, the_type_of_the_start_value_is_not_looked_at) {
    InstallService("a");
    SetValue(ServicePath("a"), "Start", REG_BINARY, Dword(2));
    InstallService("b");
    SetValue(ServicePath("b"), "Start", REG_SZ, std::string("\1", 2));
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("a", "b"));
}

TEST_F(AutoStart, a_start_value_longer_than_4_bytes_skips_the_service) {
    InstallService("a");
    SetValue(ServicePath("a"), "Start", REG_BINARY, std::string(5, '\0'));
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre());
}

TEST_F(AutoStart, dependencies_start_first_the_deepest_before_the_others) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta", {.start = demand, .dependencies = {"Gamma"}});
    InstallService("Gamma", {.start = SERVICE_DISABLED});
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Gamma", "Beta", "Alpha"));
}

TEST_F(AutoStart, dependencies_start_in_the_order_in_which_they_are_found) {
    InstallService("a", {.start = automatic, .dependencies = {"d", "b", "+G"}});
    InstallService("b");
    InstallService("c", {.group = "G", .tag = 2});
    InstallService("d", {.dependencies = {"e"}});
    InstallService("e");
    InstallService("f", {.group = "G", .tag = 1});
    SetValue(tagOrderKeyPath, "G", REG_BINARY, Dword(2) + Dword(2) + Dword(1));
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("e", "d", "b", "c", "f", "a"));
}

TEST_F(AutoStart, the_order_is_that_of_the_records_not_of_groups_and_tags_deliberate) {
    SetTexts(groupOrderKeyPath, "List", {"First", "Second"});
    InstallService("late", {.start = automatic, .group = "Second"});
    InstallService("early", {.start = automatic, .group = "First"});
    InstallService("unordered", {.start = automatic});
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("late", "early", "unordered"));
}

TEST_F(AutoStart, an_automatic_dependency_is_started_once) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta", {.start = automatic});
    InstallService("Gamma", {.start = automatic, .dependencies = {"Alpha", "Beta"}});
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Beta", "Alpha", "Gamma"));
}

TEST_F(AutoStart, a_dependency_that_fails_stops_nobody) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta", "Gamma"}});
    InstallService("Beta");
    InstallService("Gamma");
    refused = {"Beta"};
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Beta", "Gamma", "Alpha"));
}

TEST_F(AutoStart, a_service_that_fails_stops_nobody) {
    InstallService("Alpha", {.start = automatic});
    InstallService("Beta", {.start = automatic});
    refused = {"Alpha"};
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Alpha", "Beta"));
}

TEST_F(AutoStart, a_failed_dependency_is_tried_again_for_the_next_that_needs_it) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta");
    InstallService("Gamma", {.start = automatic, .dependencies = {"Beta"}});
    refused = {"Beta"};
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Beta", "Alpha", "Beta", "Gamma"));
}

TEST_F(AutoStart, a_cycle_starts_what_was_found_until_then_and_the_service_itself) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta", "Gamma", "Delta"}});
    InstallService("Beta");
    InstallService("Gamma", {.dependencies = {"Alpha"}});
    InstallService("Delta");
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Beta", "Alpha"));
}

TEST_F(AutoStart, a_walk_that_fails_starts_what_was_found_until_then_and_the_service_itself) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta", "Gamma"}});
    InstallService("Beta");
    InstallService("Gamma");
    FailCalls("size " + ServicePath("Gamma") + " DependOnGroup", ERROR_REGISTRY_IO_FAILED);
    LoadAndRun();
    EXPECT_THAT(started, ElementsAre("Beta", "Alpha"));
}

TEST_F(AutoStart, a_service_marked_for_deletion_starts_without_its_dependencies) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta");
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    svcdb[1].deletePending = 1;
    EXPECT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(started, ElementsAre("Alpha"));
}

TEST_F(AutoStart, a_service_that_runs_already_is_skipped) {
    InstallService("Alpha", {.start = automatic});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    svcdb[1].status.dwCurrentState = SERVICE_RUNNING;
    ForgetCalls();
    EXPECT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(started, ElementsAre());
    EXPECT_EQ(RegistryCalls().size(), 2u) << "its key is not even opened";
}

TEST_F(AutoStart, record_0_is_started_like_any_other) {
    InstallService("Alpha", {.start = automatic});
    ResizeServiceDatabase();
    SetServiceName(0, "Alpha");
    svcdb[0].status.dwCurrentState = SERVICE_STOPPED;
    EXPECT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(started, ElementsAre("Alpha"));
}

TEST_F(AutoStart, a_service_whose_key_or_start_value_cannot_be_read_is_skipped) {
    for (const char *name : {"a", "b", "c"}) {
        InstallService(name, {.start = automatic});
    }
    FailCalls("query " + ServicePath("b") + " Start", ERROR_REGISTRY_IO_FAILED);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    RemoveKey(ServicePath("a"));
    EXPECT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(started, ElementsAre("c"));
    EXPECT_THAT(OpenKeys(), ElementsAre());
}

TEST_F(AutoStart, without_the_services_key_nothing_starts_and_the_answer_is_0) {
    InstallService("Alpha", {.start = automatic});
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    FailCalls("open " + servicesPath, ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(started, ElementsAre());
}

TEST_F(AutoStart, the_calls_for_one_service_with_one_dependency) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta", {.start = demand});
    LoadAndRun();
    const std::string alpha = ServicePath("Alpha");
    const std::string beta = ServicePath("Beta");
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("open " + servicesPath, "open " + alpha, "query " + alpha + " Start", "open " + alpha,
                            "size " + alpha + " DependOnGroup", "query " + alpha + " DependOnGroup", "close " + alpha,
                            "open " + beta, "size " + beta + " DependOnGroup", "close " + beta, "close " + alpha,
                            "close " + servicesPath));
}

TEST_F(AutoStart, the_whole_start_up_asks_the_registry_in_this_order) {
    SetTexts(groupOrderKeyPath, "List", {"G"});
    SetValue(tagOrderKeyPath, "G", REG_BINARY, Dword(0));
    InstallService("Alpha", {.start = demand, .group = "G"});
    const std::string alpha = ServicePath("Alpha");
    const std::string order = groupOrderKeyPath;
    const std::string tags = tagOrderKeyPath;
    ASSERT_EQ(ReadGroupOrderList(&firstunorderedgroupindex), 0u);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    ASSERT_EQ(SortServicesInGroups(), 0u);
    ASSERT_EQ(RunAutoStartServices(), 0u);
    EXPECT_THAT(RegistryCalls(),
                ElementsAre("open " + order, "size " + order + " List", "query " + order + " List", "close " + order,
                            "create " + servicesPath, "enum " + servicesPath + " 0", "open " + alpha,
                            "query " + alpha + " DeleteFlag", "query " + alpha + " Type", "query " + alpha + " Tag",
                            "query " + alpha + " DisplayName", "query " + alpha + " Group",
                            "query " + alpha + " ImagePath", "close " + alpha, "enum " + servicesPath + " 1",
                            "close " + servicesPath, "open " + tags, "size " + tags + " G", "query " + tags + " G",
                            "close " + tags, "open " + servicesPath, "open " + alpha, "query " + alpha + " Start",
                            "close " + alpha, "close " + servicesPath));
}

} // namespace
