// SPDX-License-Identifier: MIT
// What is said to start with the daemon, in which order and why, from registries of a few services.
#include "tests/support/memory_registry.h"
#include "tvsc/boot_plan.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD automatic = SERVICE_AUTO_START;
constexpr DWORD demand = SERVICE_DEMAND_START;

struct PlannedBoot : MemoryRegistryTest {
    BootDatabase database;
    BootPlan plan;

    void Plan() {
        database = {};
        ASSERT_FALSE(ReadBootDatabase(HKEY_LOCAL_MACHINE, &database));
        plan = PlanBoot(database);
    }
    // "Gamma<Beta<-Alpha": Gamma is needed by Beta, and started for Alpha; "Beta(group)<..." through a group.
    std::vector<std::string> Steps() {
        Plan();
        std::vector<std::string> steps;
        for (const BootStep &step : plan.steps) {
            std::string text = NameOf(step.service);
            if (step.throughGroup != nullptr) text += "(" + *step.throughGroup + ")";
            if (step.neededBy) text += "<" + NameOf(*step.neededBy) + "<-" + NameOf(step.startedFor);
            steps.push_back(text);
        }
        return steps;
    }
    std::vector<std::string> Remarks(BootRemarkKind kind) {
        Plan();
        std::vector<std::string> remarks;
        for (const BootRemark &remark : plan.remarks)
            if (remark.kind == kind) remarks.push_back(NameOf(remark.service) + ": " + remark.text);
        return remarks;
    }
    const std::string &NameOf(std::size_t service) const { return database.services[service].name; }
};

TEST_F(PlannedBoot, the_deepest_dependency_comes_first_whatever_its_start_type) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta", {.start = demand, .dependencies = {"Gamma"}});
    InstallService("Gamma", {.start = SERVICE_DISABLED});
    InstallService("Delta", {.start = demand});
    EXPECT_THAT(Steps(), ElementsAre("Gamma<Beta<-Alpha", "Beta<Alpha<-Alpha", "Alpha"));
    EXPECT_THAT(Remarks(BootRemarkKind::disabled), ElementsAre("Gamma: Beta"));
}

TEST_F(PlannedBoot, an_automatic_service_started_as_a_dependency_does_not_come_again) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}});
    InstallService("Beta", {.start = SERVICE_BOOT_START});
    InstallService("Gamma", {.start = SERVICE_SYSTEM_START, .dependencies = {"Beta"}});
    EXPECT_THAT(Steps(), ElementsAre("Beta<Alpha<-Alpha", "Alpha", "Gamma"));
}

TEST_F(PlannedBoot, services_without_a_start_value_never_start_by_themselves) {
    InstallService("Alpha");
    InstallService("Beta", {.start = automatic, .dependencies = {"Alpha"}});
    InstallService("Gamma");
    EXPECT_THAT(Steps(), ElementsAre("Alpha<Beta<-Beta", "Beta"));
}

TEST_F(PlannedBoot, members_of_a_group_come_in_the_order_of_its_tags) {
    SetValue(tagOrderKeyPath, "Disk", REG_BINARY, NumberBytes(2) + NumberBytes(2) + NumberBytes(1));
    InstallService("one", {.start = demand, .group = "Disk", .tag = 1});
    InstallService("two", {.start = demand, .group = "Disk", .tag = 2});
    InstallService("seven", {.start = demand, .group = "Disk", .tag = 7});
    InstallService("eight", {.start = demand, .group = "Disk", .tag = 8});
    InstallService("Alpha", {.start = automatic, .dependencies = {"+Disk"}});
    EXPECT_THAT(Steps(), ElementsAre("two(Disk)<Alpha<-Alpha", "one(Disk)<Alpha<-Alpha", "eight(Disk)<Alpha<-Alpha",
                                     "seven(Disk)<Alpha<-Alpha", "Alpha"));
}

TEST_F(PlannedBoot, a_ring_ends_the_walk_and_is_told_once) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"First", "Beta", "Never"}});
    InstallService("Beta", {.start = automatic, .dependencies = {"Alpha"}});
    InstallService("First", {.start = demand});
    InstallService("Never", {.start = demand});
    EXPECT_THAT(Steps(), ElementsAre("First<Alpha<-Alpha", "Alpha", "Beta"));
    EXPECT_THAT(Remarks(BootRemarkKind::ring), ElementsAre("Alpha: Alpha > Beta > Alpha"));
}

TEST_F(PlannedBoot, dependencies_that_nobody_bears_are_passed_over_and_told) {
    SetTexts(groupOrderKeyPath, "List", {"empty"});
    InstallService("Alpha", {.start = automatic, .dependencies = {"nobody", "+nothing", "+empty", "Beta"}});
    InstallService("Beta", {.start = demand, .dependencies = {"nobody"}});
    EXPECT_THAT(Steps(), ElementsAre("Beta<Alpha<-Alpha", "Alpha"));
    EXPECT_THAT(Remarks(BootRemarkKind::unknownService), ElementsAre("Alpha: nobody", "Beta: nobody"));
    EXPECT_THAT(Remarks(BootRemarkKind::emptyGroup), ElementsAre("Alpha: nothing", "Alpha: empty"));
}

TEST_F(PlannedBoot, services_without_an_image_are_told_where_they_would_start) {
    InstallService("Alpha", {.start = automatic, .imagePath = "/alpha", .dependencies = {"Beta"}});
    InstallService("Beta", {.start = demand});
    InstallService("Gamma", {.start = automatic, .imagePath = ""});
    InstallService("Delta", {.start = demand});
    EXPECT_THAT(Remarks(BootRemarkKind::noImage), ElementsAre("Beta: ", "Gamma: "));
}

TEST_F(PlannedBoot, the_first_automatic_service_behind_a_later_group_is_told) {
    SetTexts(groupOrderKeyPath, "List", {"early", "middle", "late"});
    InstallService("needs", {.start = automatic, .dependencies = {"needed"}});
    InstallService("one", {.start = automatic, .group = "early"});
    InstallService("two", {.start = automatic, .group = "middle"});
    InstallService("unlisted", {.start = automatic, .group = "unlisted"});
    InstallService("three", {.start = automatic, .group = "middle"});
    InstallService("idle", {.start = demand, .group = "early"});
    InstallService("needed", {.start = automatic, .group = "late"});
    EXPECT_THAT(Remarks(BootRemarkKind::groupOrder), IsEmpty());

    InstallService("four", {.start = automatic, .group = "early"});
    InstallService("five", {.start = automatic, .group = "early"});
    EXPECT_THAT(Remarks(BootRemarkKind::groupOrder), ElementsAre("four: three"));
}

TEST_F(PlannedBoot, what_may_fail_may_be_tried_for_each_service_that_needs_it) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Base"}});
    InstallService("Beta", {.start = automatic, .dependencies = {"Alpha"}});
    InstallService("Base", {.start = automatic});
    Plan();
    EXPECT_EQ(plan.steps.size(), 3u);
    EXPECT_EQ(plan.mostTries, 6u) << "Base, Alpha; Base, Alpha, Beta; Base";
}

TEST_F(PlannedBoot, unreadable_dependencies_end_the_walk) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta", "Gamma"}});
    InstallService("Beta", {.start = demand, .dependencies = {"Gamma"}});
    InstallService("Gamma", {.start = demand});
    FailCalls("size " + ServicePath("Beta") + " DependOnGroup", ERROR_ACCESS_DENIED);
    EXPECT_THAT(Steps(), ElementsAre("Alpha"));
    EXPECT_THAT(Remarks(BootRemarkKind::unreadable), ElementsAre("Beta: "));
}

TEST_F(PlannedBoot, services_marked_for_deletion_are_told_and_left_in_the_registry) {
    InstallService("Old", {.start = automatic});
    SetNumber(ServicePath("Old"), "DeleteFlag", 1);
    InstallService("Alpha", {.start = automatic, .dependencies = {"Old"}});
    EXPECT_THAT(Steps(), ElementsAre("Alpha"));
    EXPECT_THAT(database.deleted, ElementsAre("Old"));
    EXPECT_TRUE(HasKey(ServicePath("Old")));
    EXPECT_THAT(OpenKeys(), IsEmpty());
}

TEST_F(PlannedBoot, an_empty_registry_starts_nothing) { EXPECT_THAT(Steps(), IsEmpty()); }

TEST_F(PlannedBoot, a_chain_of_two_thousand_services_starts_from_its_end) {
    constexpr int length = 2000;
    for (int i = 0; i < length; ++i) {
        InstallService("s" + std::to_string(i),
                       {.start = i == 0 ? automatic : demand, .dependencies = {"s" + std::to_string(i + 1)}});
    }
    Plan();
    ASSERT_EQ(plan.steps.size(), length);
    EXPECT_EQ(NameOf(plan.steps.front().service), "s1999");
    EXPECT_EQ(NameOf(plan.steps.back().service), "s0");
}

// --- what keeps the daemon from loading keeps the plan from being made, with the same code ---

struct BrokenRegistry {
    std::string name;
    std::string key;   // as the fault names it
    std::string value; // likewise
    void (*spoil)();
};

void PrintTo(const BrokenRegistry &broken, std::ostream *out) { *out << broken.name; }

struct BrokenBoot : MemoryRegistryTest, testing::WithParamInterface<BrokenRegistry> {};

TEST_P(BrokenBoot, is_told_with_the_code_of_the_daemon_s_load) {
    InstallService("Alpha", {.start = automatic, .imagePath = "/alpha", .group = "Disk"});
    GetParam().spoil();
    BootDatabase database;
    const std::optional<BootFault> fault = ReadBootDatabase(HKEY_LOCAL_MACHINE, &database);
    std::uint32_t code = ReadGroupOrderList(&firstunorderedgroupindex);
    if (code == ERROR_SUCCESS) code = ReadServiceDatabase();
    if (code == ERROR_SUCCESS) code = SortServicesInGroups();
    ASSERT_TRUE(fault);
    EXPECT_NE(code, 0u);
    EXPECT_EQ(fault->code, code);
    EXPECT_EQ(fault->key, GetParam().key);
    EXPECT_EQ(fault->value, GetParam().value);
}

void SpoilText(const std::string &value) { SetText(ServicePath("Alpha"), value, std::string(1024, 'x')); }

// For the daemon, which asks for all access, and for the plan, which only reads.
void FailOpening(const std::string &path) {
    FailCalls("open " + path, ERROR_ACCESS_DENIED);
    FailCalls("open " + path + " access " + std::to_string(KEY_READ), ERROR_ACCESS_DENIED);
}

const BrokenRegistry brokenRegistries[] = {
    {"no_type", "Alpha", "Type", [] { RemoveValue(ServicePath("Alpha"), "Type"); }},
    {"long_type", "Alpha", "Type", [] { SetText(ServicePath("Alpha"), "Type", "long"); }},
    {"long_tag", "Alpha", "Tag", [] { SetText(ServicePath("Alpha"), "Tag", "long"); }},
    {"no_display_name", "Alpha", "DisplayName", [] { RemoveValue(ServicePath("Alpha"), "DisplayName"); }},
    {"long_display_name", "Alpha", "DisplayName", [] { SpoilText("DisplayName"); }},
    {"long_group", "Alpha", "Group", [] { SpoilText("Group"); }},
    {"long_image_path", "Alpha", "ImagePath", [] { SpoilText("ImagePath"); }},
    {"long_delete_flag", "Alpha", "DeleteFlag", [] { SetText(ServicePath("Alpha"), "DeleteFlag", "long"); }},
    {"unreadable_service", "Alpha", "", [] { FailOpening(ServicePath("Alpha")); }},
    {"order_without_list", "ServiceGroupOrder", "List", [] { MakeKey(groupOrderKeyPath); }},
    {"huge_order", "ServiceGroupOrder", "List",
     [] { SetText(groupOrderKeyPath, "List", std::string(std::size_t{16} * 1024 * 1024, 'x')); }},
    {"unreadable_order", "ServiceGroupOrder", "", [] { FailOpening(groupOrderKeyPath); }},
    {"unreadable_tags", "GroupOrderList", "Disk",
     [] {
         MakeKey(tagOrderKeyPath);
         FailCalls(std::string("size ") + tagOrderKeyPath + " Disk", ERROR_ACCESS_DENIED);
     }},
};

INSTANTIATE_TEST_SUITE_P(Registry, BrokenBoot, testing::ValuesIn(brokenRegistries),
                         [](const auto &parameter) { return parameter.param.name; });

} // namespace
