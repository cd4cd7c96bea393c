// SPDX-License-Identifier: MIT
// Random registries of up to 300 services against a plain model of loading, groups, the dependency walk and automatic
// start. The seeds are fixed but for one; a failure prints its seed, and TV_SEED=N runs that one alone.
#include "tests/support/memory_registry.h"
#include "tvsc/boot_plan.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

namespace {

// --- random registries ---

struct Service {
    std::string name;
    std::string displayName;
    std::string group;                     // empty: none
    std::optional<DWORD> tag;              // as in the registry
    DWORD start;                           // 0 to 4
    std::vector<std::string> dependencies; // as in the registry
    bool deleted;                          // carries DeleteFlag
    std::int32_t state = SERVICE_STOPPED;  // once loaded
    bool marked = false;                   // for deletion, once loaded
};

struct World {
    std::vector<Service> services;
    std::vector<std::string> order;                    // "List"
    std::map<std::string, std::vector<DWORD>> vectors; // tags in start order, by group
};

using Random = std::mt19937;

std::uint32_t Below(Random &random, std::size_t bound) { return static_cast<std::uint32_t>(random() % bound); }
bool Chance(Random &random, std::uint32_t percent) { return Below(random, 100) < percent; }

// Tags are far apart, so that each of their four bytes counts.
DWORD RandomTag(Random &random, std::size_t bound) { return Below(random, bound) * 0xF1234567; }

std::string GroupName(std::uint32_t number) { return "group " + std::to_string(number); }

// A few kinds of world: without cycles, with groups among the dependencies, dense in one group.
World RandomWorld(Random &random) {
    World world;
    const std::uint32_t count = 1 + Below(random, 300);
    const std::uint32_t groups = 1 + Below(random, 30);
    const bool acyclic = Chance(random, 60);
    const bool dependsOnGroups = Chance(random, 40);
    const std::uint32_t deletedPercent = Chance(random, 50) ? 10 : 0;
    for (std::uint32_t number = 0; number < count; number++) {
        Service service = {.name = "s" + std::to_string(number),
                           .displayName = std::string(Below(random, 40), 'd'),
                           .group = Chance(random, 70) ? GroupName(Below(random, groups)) : "",
                           .tag = {},
                           .start = Below(random, 5),
                           .dependencies = {},
                           .deleted = Chance(random, deletedPercent)};
        if (Chance(random, 70)) service.tag = RandomTag(random, 12);
        for (std::uint32_t left = Below(random, 3); left > 0; left--) {
            if (dependsOnGroups && Chance(random, 15)) {
                service.dependencies.push_back("+" + GroupName(Below(random, groups + 2)));
            } else {
                const std::uint32_t first = acyclic ? number + 1 : 0;
                service.dependencies.push_back("s" + std::to_string(first + Below(random, count + 3 - first)));
            }
        }
        world.services.push_back(service);
    }
    for (std::uint32_t left = Below(random, groups + 5); left > 0; left--)
        world.order.push_back(GroupName(Below(random, groups + 5)));
    for (std::uint32_t group = 0; group < groups; group++) {
        if (Chance(random, 40)) continue;
        std::vector<DWORD> tags(Below(random, 20));
        for (DWORD &tag : tags)
            tag = RandomTag(random, 14);
        world.vectors[GroupName(group)] = tags;
    }
    return world;
}

void WriteWorld(const World &world) {
    if (!world.order.empty()) SetTexts(groupOrderKeyPath, "List", world.order);
    for (const auto &[group, tags] : world.vectors) {
        std::string data = NumberBytes(static_cast<DWORD>(tags.size()));
        for (const DWORD tag : tags)
            data += NumberBytes(tag);
        SetValue(tagOrderKeyPath, group, REG_BINARY, data);
    }
    for (const Service &service : world.services) {
        ServiceValues values = {.start = service.start,
                                .displayName = service.displayName,
                                .tag = service.tag,
                                .dependencies = service.dependencies};
        if (!service.group.empty()) values.group = service.group;
        InstallService(service.name, values);
        if (service.deleted) SetNumber(ServicePath(service.name), "DeleteFlag", 1);
    }
}

// --- the model ---

struct Group {
    std::string name;
    std::vector<std::size_t> members; // indexes into Model::services
};

struct Model {
    std::vector<Service> services; // by record number; [0] is no service
    std::vector<DWORD> tags;       // likewise, as carried over
    std::vector<Group> groups;
    std::set<std::size_t> visited;
    std::set<std::size_t> visiting;
    int steps = 0; // of the walk at hand
};

Group *FindGroup(Model &model, const std::string &name) {
    for (Group &group : model.groups)
        if (group.name == name) return &group;
    return nullptr;
}

std::size_t FindService(const Model &model, const std::string &name) {
    for (std::size_t index = 1; index < model.services.size(); index++)
        if (model.services[index].name == name) return index;
    return 0;
}

void SortGroup(Model &model, Group &group, const std::vector<DWORD> &tags) {
    std::vector<std::size_t> sorted;
    for (const DWORD tag : tags) {
        const auto member = std::find_if(group.members.begin(), group.members.end(),
                                         [&](std::size_t index) { return model.tags[index] == tag; });
        if (member == group.members.end()) continue;
        sorted.push_back(*member);
        group.members.erase(member);
    }
    sorted.insert(sorted.end(), group.members.begin(), group.members.end());
    group.members = sorted;
}

Model LoadModel(const World &world) {
    Model model;
    model.services.resize(1);
    model.tags.resize(1);
    for (const std::string &name : world.order)
        model.groups.push_back({name, {}});
    DWORD tag = 0;
    for (const Service &service : world.services) {
        if (service.deleted) continue;
        tag = service.tag.value_or(tag);
        model.services.push_back(service);
        model.tags.push_back(tag);
        if (service.group.empty()) continue;
        if (FindGroup(model, service.group) == nullptr) model.groups.push_back({service.group, {}});
        auto &members = FindGroup(model, service.group)->members;
        members.insert(members.begin(), model.services.size() - 1);
    }
    for (Group &group : model.groups) {
        if (const auto vector = world.vectors.find(group.name); vector != world.vectors.end())
            SortGroup(model, group, vector->second);
    }
    return model;
}

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

bool Passes(std::int32_t state, std::int32_t mask) {
    if (mask == 3) return true;
    if (mask == 1) return state >= 2 && state <= 7;
    return mask == 2 && state == 1;
}

constexpr int stepLimit = 200000; // the plain recursion walks what it does not mark again and again

std::uint32_t WalkModel(Model &model, std::size_t index, std::size_t root, std::int32_t mask, Walked &walked) {
    const Service &service = model.services[index];
    if (++model.steps > stepLimit || service.marked) return 0;
    if (model.visiting.contains(index)) return ERROR_CIRCULAR_DEPENDENCY;
    if (model.visited.contains(index)) return 0;
    if (!service.dependencies.empty()) model.visiting.insert(index);
    for (const std::string &dependency : service.dependencies) {
        std::vector<std::size_t> targets;
        if (dependency[0] == '+') {
            if (const Group *group = FindGroup(model, dependency.substr(1))) targets = group->members;
        } else if (const std::size_t target = FindService(model, dependency)) {
            targets = {target};
        }
        for (const std::size_t target : targets) {
            const std::uint32_t rc = WalkModel(model, target, root, mask, walked);
            if (rc != 0 && rc != ERROR_MORE_DATA) return rc;
        }
    }
    if (index == root) return 0;
    model.visiting.erase(index);
    if (!Passes(service.state, mask)) return 0;
    model.visited.insert(index);
    const auto bytes = static_cast<std::int32_t>(service.name.size() + service.displayName.size()) + 2 + 36;
    walked.bytesNeeded += bytes;
    if (bytes > walked.bytesLeft) {
        walked.bytesLeft = -1;
        return ERROR_MORE_DATA;
    }
    walked.bytesLeft -= bytes;
    walked.count++;
    walked.names.insert(walked.names.begin(), service.name);
    return 0;
}

Walked ModelWalk(Model &model, std::size_t index, std::size_t root, std::int32_t mask, std::int32_t room) {
    model.visited.clear();
    model.visiting.clear();
    model.steps = 0;
    Walked walked = {.bytesLeft = room};
    walked.rc = WalkModel(model, index, root, mask, walked);
    return walked;
}

// --- the daemon's side ---

Walked RealWalk(std::size_t index, std::size_t root, std::int32_t mask, std::int32_t room) {
    HKEY key = 0;
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &key), 0);
    Walked walked = {.bytesLeft = room};
    svd_enum_status_list_t *list = nullptr;
    walked.rc = CalculateDependencies(static_cast<std::int32_t>(index), &walked.bytesLeft, &list, &walked.bytesNeeded,
                                      &walked.count, static_cast<std::int32_t>(root), key, mask);
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

// One world, in the registry, the database and the model, and what is planned from the registry alone.
struct Trial {
    Random random;
    World world;
    Model model;
    BootDatabase planned;
};

void BeginTrial(Trial &trial) {
    EmptyServiceDatabase();
    RemoveMemoryRegistry();
    InstallMemoryRegistry();
    trial.world = RandomWorld(trial.random);
    WriteWorld(trial.world);
    trial.model = LoadModel(trial.world);
    ASSERT_FALSE(ReadBootDatabase(HKEY_LOCAL_MACHINE, &trial.planned)); // before the load deletes anything
    ASSERT_EQ(ReadGroupOrderList(&firstunorderedgroupindex), 0u);
    ASSERT_EQ(ReadServiceDatabase(), 0u);
    ASSERT_EQ(SortServicesInGroups(), 0u);
}

std::vector<std::uint32_t> Seeds() {
    if (const char *chosen = std::getenv("TV_SEED")) return {static_cast<std::uint32_t>(std::stoul(chosen))};
    std::vector<std::uint32_t> seeds = {std::random_device()()};
    for (std::uint32_t seed = 1; seed <= 100; seed++)
        seeds.push_back(seed);
    return seeds;
}

// Runs one property over all seeds, up to the first that fails.
void ForEachSeed(void (*property)(Trial &)) {
    for (const std::uint32_t seed : Seeds()) {
        SCOPED_TRACE("TV_SEED=" + std::to_string(seed));
        Trial trial = {.random = Random(seed), .world = {}, .model = {}, .planned = {}};
        BeginTrial(trial);
        if (!testing::Test::HasFailure()) property(trial);
        if (testing::Test::HasFailure()) return;
    }
}

void CheckRecords(Trial &trial) {
    const Model &model = trial.model;
    std::string names;
    for (std::size_t index = 1; index < model.services.size(); index++) {
        const std::string &name = model.services[index].name;
        names += (names.empty() ? "" : " ") + std::to_string(index) + ":" + name;
        ASSERT_EQ(static_cast<DWORD>(svcdb[index].tag), model.tags[index]) << name;
        ASSERT_EQ(svcdb[index].displayName, model.services[index].displayName) << name;
        ASSERT_EQ(GetServiceIndexFromName(name.c_str()), static_cast<int>(index));
    }
    ASSERT_EQ(ServiceNames(), names);
    ASSERT_EQ(svcdbsize, static_cast<int>((model.services.size() + 49) / 50 * 50));
}

void CheckGroups(Trial &trial) {
    const std::vector<Group> &groups = trial.model.groups;
    ASSERT_EQ(firstunorderedgroupindex, static_cast<int>(trial.world.order.size()));
    ASSERT_EQ(grouplistsize, static_cast<int>((groups.size() + 19) / 20 * 20));
    for (std::size_t index = 0; index < groups.size(); index++) {
        ASSERT_EQ(grouplist[index].name, groups[index].name);
        std::vector<std::size_t> members;
        for (const GroupMember *member = grouplist[index].members; member != nullptr; member = member->next)
            members.push_back(static_cast<std::size_t>(member->serviceIndex));
        ASSERT_EQ(members, groups[index].members) << groups[index].name;
    }
}

void CheckWalks(Trial &trial) {
    Model &model = trial.model;
    Random &random = trial.random;
    if (model.services.size() < 2) return;
    for (std::size_t index = 1; index < model.services.size(); index++) {
        Service &service = model.services[index];
        service.state = Chance(random, 70) ? SERVICE_STOPPED : static_cast<std::int32_t>(Below(random, 9));
        service.marked = Chance(random, 3);
        svcdb[index].status.dwCurrentState = service.state;
        svcdb[index].deletePending = service.marked ? 1 : 0;
    }
    for (int walk = 0; walk < 60; walk++) {
        const std::size_t index = 1 + Below(random, model.services.size() - 1);
        // Record 0 is no service: without a root that is left out, the walk tells the result of the service itself.
        const std::size_t root = Chance(random, 80) ? index : 0;
        const auto mask = static_cast<std::int32_t>(Below(random, 4));
        const std::int32_t room = Chance(random, 50) ? INT32_MAX : static_cast<std::int32_t>(Below(random, 2000));
        const Walked expected = ModelWalk(model, index, root, mask, room);
        if (model.steps > stepLimit) continue;
        const Walked walked = RealWalk(index, root, mask, room);
        ASSERT_EQ(walked.names, expected.names) << "from " << index << ", root " << root << ", mask " << mask;
        ASSERT_EQ(walked, expected) << "from " << index << ", root " << root << ", mask " << mask << ", room " << room;
    }
}

void CheckAutomaticStart(Trial &trial) {
    Model &model = trial.model;
    started.clear();
    refused.clear();
    for (const Service &service : model.services)
        if (Chance(trial.random, 5)) refused.insert(service.name);

    std::vector<std::string> expected;
    const auto start = [&](std::size_t index) {
        expected.push_back(model.services[index].name);
        if (!refused.contains(model.services[index].name)) model.services[index].state = SERVICE_START_PENDING;
    };
    for (std::size_t index = 1; index < model.services.size(); index++) {
        if (model.services[index].start > 2 || model.services[index].state != SERVICE_STOPPED) continue;
        const Walked walked = ModelWalk(model, index, index, SERVICE_INACTIVE, INT32_MAX);
        if (model.steps > stepLimit) return;
        for (auto name = walked.names.rbegin(); name != walked.names.rend(); ++name)
            start(FindService(model, *name));
        start(index);
    }
    ASSERT_EQ(RunAutoStartServices(), 0u);
    ASSERT_EQ(started, expected);
}

void CheckPlan(Trial &trial) {
    const BootPlan plan = PlanBoot(trial.planned);
    started.clear();
    for (const Service &service : trial.model.services)
        refused.insert(service.name);
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
