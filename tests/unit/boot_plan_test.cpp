// SPDX-License-Identifier: MIT
// What is said to start with the daemon, in which order and why, from registries of a few services.
#include "servd/limits.h"
#include "tests/support/memory_registry.h"
#include "tvsc/boot_plan.h"
#include "tvsc/boot_words.h"

#include <gmock/gmock.h>

#include <chrono>
#include <random>
#include <set>

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
        for (const BootRemark &remark : plan.remarks) {
            if (remark.kind == kind) remarks.push_back(NameOf(remark.service) + ": " + remark.text);
        }
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

TEST_F(PlannedBoot, a_masked_service_is_no_step_and_what_it_needs_is_one) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta"}, .account = ":masked"});
    InstallService("Beta", {.start = automatic});
    InstallService("Gamma", {.start = automatic, .dependencies = {"Delta"}});
    InstallService("Delta", {.start = SERVICE_DISABLED, .account = ":masked:root"});
    InstallService("Epsilon", {.start = demand, .account = ":masked"});
    InstallService("Zeta", {.start = automatic, .account = ":maskedroot"});
    EXPECT_THAT(Steps(), ElementsAre("Beta<Alpha<-Alpha", "Gamma", "Zeta"));
    EXPECT_THAT(Remarks(BootRemarkKind::masked), ElementsAre("Alpha: ", "Delta: ")) << "those that would be tried";
    EXPECT_THAT(Remarks(BootRemarkKind::disabled), IsEmpty());
    EXPECT_EQ(plan.mostTries, 4u) << "Beta for Alpha and for itself: a masked one is refused at once";
}

TEST_F(PlannedBoot, a_step_may_take_the_tries_and_the_call_and_those_of_a_process_that_it_shares) {
    InstallService("Alpha", {.start = automatic, .imagePath = "/shared", .dependencies = {"Delta"}});
    InstallService("Beta", {.type = SERVICE_WIN32_SHARE_PROCESS, .start = automatic, .imagePath = "/shared"});
    InstallService("Gamma", {.type = SERVICE_WIN32_SHARE_PROCESS, .start = automatic, .imagePath = "/alone"});
    InstallService("Delta", {.start = automatic, .imagePath = "/shared"});
    EXPECT_THAT(Steps(), ElementsAre("Delta<Alpha<-Alpha", "Alpha", "Beta", "Gamma"));
    EXPECT_THAT(WorstCasesSec(database, plan), ElementsAre(55u, 55u, 60u, 55u)) << "30 tries and a call of 25 s";
    EXPECT_EQ(plan.mostTries, 5u);
    EXPECT_EQ(WorstCaseSec(database, plan), 225u + 30u) << "Delta is tried for Alpha and for itself";
}

TEST_F(PlannedBoot, a_service_of_a_shared_process_tries_that_of_another_one_each_time) {
    const DWORD shared = SERVICE_WIN32_SHARE_PROCESS;
    InstallService("Alpha", {.start = automatic, .imagePath = "/a", .dependencies = {"Beta", "Delta"}});
    InstallService("Beta", {.type = shared, .start = automatic, .imagePath = "/shared"});
    InstallService("Gamma", {.type = shared, .start = automatic, .imagePath = "/shared"});
    InstallService("Delta", {.type = shared, .start = automatic, .imagePath = "/alone"});
    EXPECT_THAT(Steps(), ElementsAre("Beta<Alpha<-Alpha", "Delta<Alpha<-Alpha", "Alpha", "Gamma"));
    EXPECT_THAT(WorstCasesSec(database, plan), ElementsAre(55u, 55u, 55u, 60u));
    EXPECT_EQ(WorstCaseSec(database, plan), 225u + 35u + 30u) << "Beta again, after Gamma perhaps, and Delta again";
}

TEST_F(PlannedBoot, services_without_a_start_value_never_start_by_themselves) {
    InstallService("Alpha");
    InstallService("Beta", {.start = automatic, .dependencies = {"Alpha"}});
    InstallService("Gamma");
    EXPECT_THAT(Steps(), ElementsAre("Alpha<Beta<-Beta", "Beta"));
}

TEST_F(PlannedBoot, members_of_a_group_come_in_the_order_of_its_tags) {
    SetValue(tagOrderKeyPath, "Disk", REG_BINARY, Dword(2) + Dword(2) + Dword(1));
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

TEST_F(PlannedBoot, dependencies_longer_than_any_text_are_all_read) {
    std::vector<std::string> names;
    for (int i = 0; i < 200; ++i) {
        names.push_back("Dependency" + std::to_string(i));
        InstallService(names.back(), {.start = demand});
    }
    InstallService("Alpha", {.start = automatic, .dependencies = names});
    EXPECT_EQ(Steps().size(), 201u);
}

TEST_F(PlannedBoot, unreadable_dependencies_end_the_walk) {
    InstallService("Alpha", {.start = automatic, .dependencies = {"Beta", "Gamma"}});
    InstallService("Beta", {.start = demand, .dependencies = {"Gamma"}});
    InstallService("Gamma", {.start = demand});
    FailCalls("query " + ServicePath("Beta") + " DependOnGroup", ERROR_ACCESS_DENIED);
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

// --- against the walk as the daemon makes it: anew for each automatic service, over everything it leads to ---

struct PlainWalk {
    const BootDatabase &database;
    std::size_t root = 0;
    std::set<std::size_t> seen = {};
    std::vector<std::size_t> onTheWay = {};
    std::vector<std::string> found = {}; // steps as StepText tells them
    std::vector<std::string> *remarks = nullptr;

    void Tell(BootRemarkKind kind, std::size_t service, const std::string &text) const {
        const std::string remark = std::to_string(static_cast<int>(kind)) + " " + std::to_string(service) + " " + text;
        if (std::find(remarks->begin(), remarks->end(), remark) == remarks->end()) remarks->push_back(remark);
    }
    void TellRing(std::size_t service) const {
        std::vector<std::size_t> ring(std::find(onTheWay.begin(), onTheWay.end(), service), onTheWay.end());
        std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
        std::string text;
        for (const std::size_t member : ring) {
            text += database.services[member].name + " > ";
        }
        Tell(BootRemarkKind::ring, ring.front(), text + database.services[ring.front()].name);
    }
    const BootGroup *GroupNamed(const std::string &name) const {
        const auto found_ = std::find_if(database.groups.begin(), database.groups.end(),
                                         [&](const BootGroup &group) { return group.name == name; });
        return found_ != database.groups.end() && !found_->members.empty() ? &*found_ : nullptr;
    }
    std::optional<std::size_t> ServiceNamed(const std::string &name) const {
        for (std::size_t i = 0; i < database.services.size(); ++i) {
            if (database.services[i].name == name) return i;
        }
        return {};
    }
    void TellUnknown(std::size_t service) const {
        for (const std::string &name : database.services[service].dependencies) {
            if (name.front() == '+') {
                if (GroupNamed(name.substr(1)) == nullptr) Tell(BootRemarkKind::emptyGroup, service, name.substr(1));
            } else if (!ServiceNamed(name)) {
                Tell(BootRemarkKind::unknownService, service, name);
            }
        }
    }
    // Returns false when the walk ends here.
    bool Visit(std::size_t service, const std::string &step) {
        if (std::find(onTheWay.begin(), onTheWay.end(), service) != onTheWay.end()) {
            TellRing(service);
            return false;
        }
        if (seen.contains(service)) return true;
        if (database.services[service].dependenciesCode != 0) {
            Tell(BootRemarkKind::unreadable, service, "");
            return false;
        }
        onTheWay.push_back(service);
        TellUnknown(service);
        for (const std::string &name : database.services[service].dependencies) {
            if (name.front() == '+') {
                const BootGroup *group = GroupNamed(name.substr(1));
                for (const std::size_t member : group != nullptr ? group->members : std::vector<std::size_t>{}) {
                    if (!Visit(member, StepText(member, service, group))) return false;
                }
            } else if (const auto named = ServiceNamed(name)) {
                if (!Visit(*named, StepText(*named, service, nullptr))) return false;
            }
        }
        onTheWay.pop_back();
        seen.insert(service);
        if (service != root) found.push_back(step);
        return true;
    }
    static std::string StepText(std::size_t service, std::size_t neededBy, const BootGroup *group) {
        return std::to_string(service) + "<" + std::to_string(neededBy) + (group != nullptr ? "+" + group->name : "");
    }
};

BootDatabase RandomDatabase(std::mt19937 &random) {
    const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(random() % bound); };
    BootDatabase database;
    const std::size_t count = 1 + below(25), groups = below(5);
    for (std::size_t i = 0; i < groups; ++i) {
        database.groups.push_back({"g" + std::to_string(i), {}});
    }
    const bool hasRings = below(2) == 0;
    for (std::size_t i = 0; i < count; ++i) {
        BootService service = {.name = "s" + std::to_string(i), .imagePath = "/x"};
        service.start = static_cast<DWORD>(below(5));
        if (below(15) == 0) service.dependenciesCode = ERROR_ACCESS_DENIED;
        for (std::size_t left = below(4); left > 0; --left) {
            const std::size_t first = hasRings ? 0 : i + 1;
            service.dependencies.push_back(below(4) == 0 ? "+g" + std::to_string(below(6))
                                                         : "s" + std::to_string(first + below(count + 1)));
        }
        database.services.push_back(service);
        if (groups != 0 && below(2) == 0) database.groups[below(groups)].members.push_back(i);
    }
    return database;
}

TEST(PlanBoot, is_what_a_walk_from_each_automatic_service_finds) {
    for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        const BootDatabase database = RandomDatabase(random);
        std::vector<std::string> steps, remarks, planned, told;
        std::set<std::string> started;
        std::size_t tries = 0;
        for (std::size_t i = 0; i < database.services.size(); ++i) {
            if (*database.services[i].start > SERVICE_AUTO_START) continue;
            PlainWalk walk = {.database = database, .root = i, .remarks = &remarks};
            (void)walk.Visit(i, "");
            tries += walk.found.size() + 1;
            walk.found.push_back(std::to_string(i) + "<");
            for (const std::string &step : walk.found) {
                if (started.insert(step.substr(0, step.find('<'))).second) steps.push_back(step);
            }
        }
        const BootPlan plan = PlanBoot(database);
        for (const BootStep &step : plan.steps) {
            planned.push_back(std::to_string(step.service) + "<");
            if (step.neededBy) planned.back() += std::to_string(*step.neededBy);
            if (step.throughGroup != nullptr) planned.back() += "+" + *step.throughGroup;
        }
        for (const BootRemark &remark : plan.remarks) {
            if (remark.kind == BootRemarkKind::disabled || remark.kind == BootRemarkKind::groupOrder) continue;
            told.push_back(std::to_string(static_cast<int>(remark.kind)) + " " + std::to_string(remark.service) + " " +
                           remark.text);
        }
        ASSERT_EQ(planned, steps) << "seed " << seed;
        ASSERT_EQ(told, remarks) << "seed " << seed;
        ASSERT_EQ(plan.mostTries, tries) << "seed " << seed;
    }
}

// Walked anew from each, the first three of them would take minutes.
TEST(PlanBoot, of_many_automatic_services_is_made_at_once) {
    constexpr std::size_t count = 30'000;
    enum class Shape { chain, chainBackwards, ring, oneGroup };
    for (const Shape shape : {Shape::chain, Shape::chainBackwards, Shape::ring, Shape::oneGroup}) {
        BootDatabase database;
        database.groups.push_back({"all", {}});
        for (std::size_t i = 0; i < count; ++i) {
            BootService service = {.name = "s" + std::to_string(i), .imagePath = "/x", .start = SERVICE_AUTO_START};
            const std::size_t next = shape == Shape::chainBackwards ? i - 1 : i + 1;
            service.dependencies = {
                shape == Shape::oneGroup ? "+all" : "s" + std::to_string(shape == Shape::ring ? next % count : next)};
            database.services.push_back(service);
            if (i != 0) database.groups[0].members.push_back(i);
        }
        const auto begin = std::chrono::steady_clock::now();
        const BootPlan plan = PlanBoot(database);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
        EXPECT_EQ(plan.steps.size(), count);
        const bool isChain = shape == Shape::chain || shape == Shape::chainBackwards;
        EXPECT_EQ(plan.mostTries, isChain ? count * (count + 1) / 2 : count);
    }
}

TEST_F(PlannedBoot, a_tag_vector_may_be_long) {
    constexpr std::size_t count = 14'000;
    BootGroup expected;
    std::string vector = Dword(0);
    for (std::size_t i = 0; i < count; ++i) {
        InstallService("s" + std::to_string(i), {.start = demand, .group = "Disk", .tag = static_cast<DWORD>(i % 7)});
    }
    for (std::size_t i = 0; i < 2'000'000; ++i) {
        vector += Dword(static_cast<DWORD>(i % 2 == 0 ? 5 : 1'000'000 + i)); // few find a member
    }
    SetValue(tagOrderKeyPath, "Disk", REG_BINARY, vector);
    const auto begin = std::chrono::steady_clock::now();
    Plan();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    const std::vector<std::size_t> &members = database.groups[0].members;
    ASSERT_EQ(members.size(), count);
    EXPECT_EQ(NameOf(members[0]), "s13998") << "the last to come is the first of its group";
    EXPECT_EQ(NameOf(members[count / 7]), "s13999") << "the rest as it stood";
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

void SpoilText(const std::string &value) { SetText(ServicePath("Alpha"), value, std::string(textBytes, 'x')); }

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
     [] { SetText(groupOrderKeyPath, "List", std::string(longestValueBytes, 'x')); }},
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
