// SPDX-License-Identifier: MIT
// Random registries of up to 300 services against the model of loading, groups and the dependency walk, of automatic
// start and of its plan. The seeds are fixed but for one; a failure prints its seed, and TV_SEED=N runs that one alone.
#include "tests/support/database_model.h"
#include "tests/support/memory_registry.h"
#include "tvsc/boot_plan.h"

#include <gmock/gmock.h>

#include <optional>
#include <random>
#include <set>

namespace {

// --- random registries ---

using Random = std::mt19937;

std::uint32_t Below(Random &random, std::size_t bound) { return static_cast<std::uint32_t>(random() % bound); }
bool Chance(Random &random, std::uint32_t percent) { return Below(random, 100) < percent; }

// Tags are far apart, so that each of their four bytes counts.
DWORD RandomTag(Random &random, std::size_t bound) { return Below(random, bound) * 0xF1234567; }

std::string GroupName(std::uint32_t number) { return "group " + std::to_string(number); }

// What the services of one registry have in common.
struct Kind {
    std::uint32_t services;
    std::uint32_t groups;
    bool isAcyclic;
    bool dependsOnGroups;
    bool repeatsGroups;
    std::uint32_t deletedPercent;
};

Kind RandomKind(Random &random) {
    Kind kind = {.services = 1 + Below(random, 300),
                 .groups = 1 + Below(random, 30),
                 .isAcyclic = Chance(random, 60),
                 .dependsOnGroups = Chance(random, 40),
                 .repeatsGroups = Chance(random, 50),
                 .deletedPercent = Chance(random, 50) ? 10u : 0u};
    return kind;
}

std::vector<std::string> RandomDependencies(Random &random, const Kind &kind, std::uint32_t number) {
    std::vector<std::string> dependencies;
    for (std::uint32_t left = Below(random, 3); left > 0; left--) {
        if (kind.dependsOnGroups && Chance(random, 15)) {
            const std::string group = "+" + GroupName(Below(random, kind.groups + 2));
            dependencies.push_back(group);
            if (kind.repeatsGroups) dependencies.insert(dependencies.begin() + Below(random, left), group);
        } else {
            const std::uint32_t first = kind.isAcyclic ? number + 1 : 0;
            dependencies.push_back("s" + std::to_string(first + Below(random, kind.services + 3 - first)));
        }
    }
    return dependencies;
}

ModelKey RandomService(Random &random, const Kind &kind, std::uint32_t number) {
    ModelKey service = {"s" + std::to_string(number)};
    service.values = LoadableValues(std::string(Below(random, 40), 'd'), {{"Start", AsNumber(Below(random, 5))}});
    if (Chance(random, 70)) service.values["Group"] = AsText(GroupName(Below(random, kind.groups)));
    if (Chance(random, 70)) service.values["Tag"] = AsNumber(RandomTag(random, 12));
    const std::vector<std::string> dependencies = RandomDependencies(random, kind, number);
    if (!dependencies.empty()) service.values["DependOnGroup"] = AsMulti(dependencies);
    if (Chance(random, kind.deletedPercent)) service.values["DeleteFlag"] = AsNumber(1);
    return service;
}

ModelDatabase RandomRegistry(Random &random) {
    ModelDatabase model;
    const Kind kind = RandomKind(random);
    for (std::uint32_t number = 0; number < kind.services; number++) {
        model.services.push_back(RandomService(random, kind, number));
    }
    for (std::uint32_t left = Below(random, kind.groups + 5); left > 0; left--) {
        model.groupOrder.push_back(GroupName(Below(random, kind.groups + 5)));
    }
    for (std::uint32_t group = 0; group < kind.groups; group++) {
        if (Chance(random, 40)) continue;
        std::vector<DWORD> words(1 + Below(random, 20)); // the first is a count that nobody looks at
        for (DWORD &word : words) {
            word = RandomTag(random, 14);
        }
        model.tagOrder[GroupName(group)] = AsBinary(Words(words));
    }
    return model;
}

// --- the walk, of the model and of the daemon ---

struct Walked {
    std::uint32_t rc = 0;
    std::vector<std::string> names = {}; // from the head of the list
    std::int32_t bytesLeft = 0;
    std::int32_t bytesNeeded = 0;
    std::int32_t count = 0;

    bool operator==(const Walked &) const = default;
};

void PrintTo(const Walked &walked, std::ostream *out) {
    *out << "code " << walked.rc << ", left " << walked.bytesLeft << ", needed " << walked.bytesNeeded << ", count "
         << walked.count;
}

// Nothing when the plain recursion takes too long.
std::optional<Walked> WalkOfModel(ModelDatabase &model, std::int32_t index, std::int32_t root, std::int32_t mask,
                                  std::int32_t room) {
    ModelWalk walk = {.root = root, .mask = mask, .left = room, .stepsLeft = 5000};
    const std::int32_t code = WalkFrom(model, index, walk);
    if (walk.stepsLeft == 0) return {};
    Walked walked = {.rc = static_cast<std::uint32_t>(code),
                     .bytesLeft = walk.left,
                     .bytesNeeded = walk.needed,
                     .count = walk.count};
    for (const std::int32_t found : walk.list) {
        walked.names.push_back(RecordOf(model, found).name);
    }
    return walked;
}

Walked WalkOfDaemon(std::int32_t index, std::int32_t root, std::int32_t mask, std::int32_t room) {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &key), 0);
    Walked walked = {.bytesLeft = room};
    svd_enum_status_list_t *list = nullptr;
    walked.rc =
        CalculateDependencies(index, &walked.bytesLeft, &list, &walked.bytesNeeded, &walked.count, root, key, mask);
    ClearVisitingFlags();
    (void)RegCloseKey(key);
    while (list != nullptr) {
        svd_enum_status_list_t *record = list;
        list = record->next;
        walked.names.emplace_back(record->name);
        std::free(record->name);
        std::free(record->displayName);
        std::free(record);
    }
    return walked;
}

std::vector<std::string> started;
std::set<std::string> refused; // names whose start fails

} // namespace

// Takes the place of the starter: keeps the order, and fails for the names that are refused.
Win32Code QuickStartService(std::int32_t index, svc_arglist_t *, std::int32_t) {
    started.emplace_back(svcdb[index].name);
    if (refused.contains(svcdb[index].name)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    svcdb[index].status.dwCurrentState = SERVICE_START_PENDING;
    return ERROR_SUCCESS;
}

namespace {

// One registry, loaded by the daemon and by the model, and what is planned from it alone.
struct Trial {
    Random random;
    ModelDatabase model = {};
    BootDatabase planned = {};
};

void BeginTrial(Trial &trial) {
    EmptyServiceDatabase();
    RemoveMemoryRegistry();
    InstallMemoryRegistry();
    trial.model = RandomRegistry(trial.random);
    WriteModel(trial.model);
    LoadModel(trial.model);
    ASSERT_FALSE(ReadBootDatabase(HKEY_LOCAL_MACHINE, &trial.planned)); // before the load deletes anything
    ASSERT_EQ(ReadGroupOrderList(&firstunorderedgroupindex), 0u);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    ASSERT_EQ(SortServicesInGroups(), 0u);
}

std::vector<std::uint32_t> Seeds() {
    if (const char *chosen = std::getenv("TV_SEED")) return {static_cast<std::uint32_t>(std::stoul(chosen))};
    std::vector<std::uint32_t> seeds = {std::random_device()()};
    for (std::uint32_t seed = 1; seed <= 100; seed++) {
        seeds.push_back(seed);
    }
    return seeds;
}

// Runs one property over all seeds, up to the first that fails.
void ForEachSeed(void (*property)(Trial &)) {
    for (const std::uint32_t seed : Seeds()) {
        SCOPED_TRACE("TV_SEED=" + std::to_string(seed));
        Trial trial = {.random = Random(seed)};
        BeginTrial(trial);
        if (!testing::Test::HasFailure()) property(trial);
        if (testing::Test::HasFailure()) return;
    }
}

void CheckRecords(Trial &trial) {
    ModelDatabase &model = trial.model;
    ASSERT_EQ(svcdbsize, static_cast<std::int32_t>(model.records.size()));
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        const ModelRecord &record = RecordOf(model, index);
        ASSERT_EQ(svcdb[index].name != nullptr, record.used) << index;
        if (!record.used) continue;
        ASSERT_EQ(svcdb[index].name, record.name);
        ASSERT_EQ(svcdb[index].displayName, record.displayName) << record.name;
        ASSERT_EQ(svcdb[index].tag, record.tag) << record.name;
        ASSERT_EQ(GetServiceIndexFromName(record.name.c_str()), index);
    }
}

void CheckGroups(Trial &trial) {
    const std::vector<ModelGroup> &groups = trial.model.groups;
    ASSERT_EQ(firstunorderedgroupindex, static_cast<int>(trial.model.groupOrder.size()));
    ASSERT_EQ(grouplistsize, static_cast<int>((groups.size() + 19) / 20 * 20));
    for (std::size_t index = 0; index < groups.size(); index++) {
        ASSERT_EQ(grouplist[index].name, groups[index].name);
        std::deque<std::int32_t> members;
        for (const GroupMember *member = grouplist[index].members; member != nullptr; member = member->next) {
            members.push_back(member->serviceIndex);
        }
        ASSERT_EQ(members, groups[index].members) << groups[index].name;
    }
}

// Any state, now and then a mark for deletion, and a record that is free by now.
void Disturb(Trial &trial) {
    for (std::int32_t index = 1; index < svcdbsize; index++) {
        ModelRecord &record = RecordOf(trial.model, index);
        if (!record.used) continue;
        record.status.dwCurrentState =
            Chance(trial.random, 70) ? SERVICE_STOPPED : static_cast<std::int32_t>(Below(trial.random, 9));
        record.marked = Chance(trial.random, 3);
        record.used = !Chance(trial.random, 2);
        svcdb[index].status.dwCurrentState = record.status.dwCurrentState;
        svcdb[index].deletePending = record.marked ? 1 : 0;
        if (!record.used) SetServiceName(index, nullptr);
    }
}

void CheckWalks(Trial &trial) {
    Random &random = trial.random;
    Disturb(trial);
    for (int walk = 0; walk < 60; walk++) {
        const auto index = static_cast<std::int32_t>(Below(random, trial.model.records.size()));
        // Record 0 is no service: without a root that is left out, the walk tells the result of the service itself.
        const std::int32_t root = Chance(random, 80) ? index : 0;
        const auto mask = static_cast<std::int32_t>(Below(random, 4));
        const std::int32_t room = Chance(random, 50) ? INT32_MAX : static_cast<std::int32_t>(Below(random, 2000));
        const std::optional<Walked> expected = WalkOfModel(trial.model, index, root, mask, room);
        if (!expected) continue;
        const Walked walked = WalkOfDaemon(index, root, mask, room);
        ASSERT_EQ(walked.names, expected->names) << "from " << index << ", root " << root << ", mask " << mask;
        ASSERT_EQ(walked, *expected) << "from " << index << ", root " << root << ", mask " << mask << ", room " << room;
    }
}

bool StartsAtBoot(ModelDatabase &model, const ModelRecord &record) {
    return record.used && record.status.dwCurrentState == SERVICE_STOPPED &&
           NumberValue(FindKey(model, record.name)->values, "Start") <= SERVICE_AUTO_START;
}

void CheckAutomaticStart(Trial &trial) {
    ModelDatabase &model = trial.model;
    started.clear();
    refused.clear();
    for (const ModelRecord &record : model.records) {
        if (Chance(trial.random, 5)) refused.insert(record.name);
    }

    std::vector<std::string> expected;
    const auto start = [&](std::int32_t index) {
        ModelRecord &record = RecordOf(model, index);
        expected.push_back(record.name);
        if (!refused.contains(record.name)) record.status.dwCurrentState = SERVICE_START_PENDING;
    };
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        if (!StartsAtBoot(model, RecordOf(model, index))) continue;
        const std::optional<Walked> walked = WalkOfModel(model, index, index, SERVICE_INACTIVE, INT32_MAX);
        if (!walked) return;
        for (auto name = walked->names.rbegin(); name != walked->names.rend(); ++name) {
            start(IndexOf(model, *name));
        }
        start(index);
    }
    ASSERT_EQ(RunAutoStartServices(), 0u);
    ASSERT_EQ(started, expected);
}

void CheckPlan(Trial &trial) {
    const BootPlan plan = PlanBoot(trial.planned);
    started.clear();
    for (const ModelRecord &record : trial.model.records) {
        refused.insert(record.name);
    }
    ASSERT_EQ(RunAutoStartServices(), 0u);
    ASSERT_EQ(started.size(), plan.mostTries);

    started.clear();
    refused.clear();
    ASSERT_EQ(RunAutoStartServices(), 0u);
    std::vector<std::string> expected;
    for (const BootStep &step : plan.steps) {
        const BootService &service = trial.planned.services[step.service];
        expected.push_back(service.name);
        const std::vector<std::string> &needed = trial.planned.services[step.neededBy.value_or(0)].dependencies;
        const std::string through = step.throughGroup != nullptr ? "+" + *step.throughGroup : service.name;
        if (step.neededBy) {
            ASSERT_THAT(needed, testing::Contains(through)) << service.name;
        }
        ASSERT_LE(trial.planned.services[step.startedFor].start.value(), 2u);
    }
    ASSERT_EQ(started, expected);
}

struct LoadOrder : MemoryRegistryTest {};

TEST_F(LoadOrder, records_are_those_of_the_model) { ForEachSeed(CheckRecords); }
TEST_F(LoadOrder, groups_are_those_of_the_model) { ForEachSeed(CheckGroups); }
TEST_F(LoadOrder, walks_are_those_of_the_model) { ForEachSeed(CheckWalks); }
TEST_F(LoadOrder, automatic_start_is_that_of_the_model) { ForEachSeed(CheckAutomaticStart); }
TEST_F(LoadOrder, what_was_planned_is_what_starts) { ForEachSeed(CheckPlan); }

} // namespace
