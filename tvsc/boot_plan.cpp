// SPDX-License-Identifier: MIT
// boot_plan: plays the daemon's automatic start without starting anything.
//
// The order is that of the records, whatever groups and tags say; before each automatic service come those that it
// depends on and that do not run yet, the deepest first. A walk over dependencies ends at a ring; what it had found
// until then is started all the same.
#include "tvsc/boot_plan.h"

#include "tv/winsvc.h"

#include <algorithm>
#include <set>
#include <unordered_map>

namespace {

// What a service depends on: one that it names, or a member of a group that it names.
struct Target {
    std::size_t service;
    const std::string *group; // null when named itself
};

struct Visit {
    BootStep step;
    std::vector<Target> targets;
    std::size_t next = 0; // the first target not yet walked
};

struct Planner {
    const BootDatabase *database;
    std::unordered_map<std::string, std::size_t> services;     // by name
    std::unordered_map<std::string, const BootGroup *> groups; // likewise, the first of each name
    std::vector<char> started;                                 // by service
    std::set<BootRemark> told;
    BootPlan plan;
};

struct Walk {
    std::size_t root;
    std::vector<char> seen;     // by service: walked to its end
    std::vector<char> visiting; // by service: on the stack
    std::vector<Visit> stack;
    std::vector<BootStep> found;
};

void Remark(Planner &planner, BootRemarkKind kind, std::size_t service, std::string text) {
    BootRemark remark = {kind, service, std::move(text)};
    if (planner.told.insert(remark).second) planner.plan.remarks.push_back(std::move(remark));
}

std::vector<Target> TargetsOf(Planner &planner, std::size_t service) {
    std::vector<Target> targets;
    for (const std::string &name : planner.database->services[service].dependencies) {
        if (name.front() == SC_GROUP_IDENTIFIERA) {
            const auto group = planner.groups.find(name.substr(1));
            if (group == planner.groups.end() || group->second->members.empty()) {
                Remark(planner, BootRemarkKind::emptyGroup, service, name.substr(1));
                continue;
            }
            for (const std::size_t member : group->second->members) {
                targets.push_back({member, &group->second->name});
            }
        } else if (const auto found = planner.services.find(name); found != planner.services.end()) {
            targets.push_back({found->second, nullptr});
        } else {
            Remark(planner, BootRemarkKind::unknownService, service, name);
        }
    }
    return targets;
}

// Tells the ring that the stack has closed with this service, once, wherever it was entered.
void RemarkRing(Planner &planner, const Walk &walk, std::size_t service) {
    std::vector<std::size_t> ring;
    for (auto visit = walk.stack.rbegin(); ring.empty() || ring.back() != service; ++visit) {
        ring.push_back(visit->step.service);
    }
    std::reverse(ring.begin(), ring.end());
    std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
    std::string text;
    for (const std::size_t member : ring) {
        text += planner.database->services[member].name + " > ";
    }
    Remark(planner, BootRemarkKind::ring, ring.front(), text + planner.database->services[ring.front()].name);
}

// Begins the walk of a service. Returns false when the whole walk ends here.
bool Enter(Planner &planner, Walk &walk, const BootStep &step) {
    if (walk.visiting[step.service] != 0) {
        RemarkRing(planner, walk, step.service);
        return false;
    }
    if (walk.seen[step.service] != 0) return true;
    if (planner.database->services[step.service].dependenciesCode != 0) {
        Remark(planner, BootRemarkKind::unreadable, step.service, "");
        return false;
    }
    walk.visiting[step.service] = 1;
    walk.stack.push_back({step, TargetsOf(planner, step.service)});
    return true;
}

// Ends the walk of the innermost service.
void Leave(Walk &walk) {
    const BootStep step = walk.stack.back().step;
    walk.stack.pop_back();
    walk.visiting[step.service] = 0;
    walk.seen[step.service] = 1;
    if (step.service != walk.root) walk.found.push_back(step);
}

// Whether they run already or not.
std::vector<BootStep> DependenciesOf(Planner &planner, std::size_t root) {
    const std::size_t count = planner.database->services.size();
    Walk walk = {
        .root = root, .seen = std::vector<char>(count), .visiting = std::vector<char>(count), .stack = {}, .found = {}};
    bool goesOn = Enter(planner, walk, {.service = root, .startedFor = root});
    while (goesOn && !walk.stack.empty()) {
        Visit &visit = walk.stack.back();
        if (visit.next == visit.targets.size()) {
            Leave(walk);
            continue;
        }
        const Target target = visit.targets[visit.next++];
        goesOn = Enter(planner, walk, {target.service, root, visit.step.service, target.group});
    }
    return walk.found;
}

void Start(Planner &planner, const BootStep &step) {
    if (planner.started[step.service] != 0) return;
    planner.started[step.service] = 1;
    const BootService &service = planner.database->services[step.service];
    if (service.imagePath.empty()) Remark(planner, BootRemarkKind::noImage, step.service, "");
    if (service.start == SERVICE_DISABLED) {
        Remark(planner, BootRemarkKind::disabled, step.service, planner.database->services[*step.neededBy].name);
    }
    planner.plan.steps.push_back(step);
}

// Groups do not order the automatic services among themselves. Whoever expects it is told once, by the first service
// that would have come sooner.
void RemarkGroupOrder(Planner &planner) {
    const BootDatabase &database = *planner.database;
    std::vector<std::optional<std::size_t>> ranks(database.services.size()); // places in the order list
    for (std::size_t rank = 0; rank < database.orderedGroups; ++rank) {
        for (const std::size_t member : database.groups[rank].members) {
            ranks[member] = rank;
        }
    }
    std::optional<std::size_t> latest; // of the services so far the one whose group comes last
    for (const BootStep &step : planner.plan.steps) {
        const std::optional<std::size_t> rank = ranks[step.service];
        if (step.neededBy || !rank) continue;
        if (latest && rank < ranks[*latest]) {
            Remark(planner, BootRemarkKind::groupOrder, step.service, database.services[*latest].name);
            return;
        }
        latest = step.service;
    }
}

bool IsAutomatic(const BootService &service) { return service.start && *service.start <= SERVICE_AUTO_START; }

} // namespace

BootPlan PlanBoot(const BootDatabase &database) {
    Planner planner = {.database = &database, .services = {}, .groups = {}, .started = {}, .told = {}, .plan = {}};
    planner.started.resize(database.services.size());
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        planner.services.emplace(database.services[i].name, i);
    }
    for (const BootGroup &group : database.groups) {
        planner.groups.emplace(group.name, &group);
    }
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        if (!IsAutomatic(database.services[i])) continue;
        const std::vector<BootStep> dependencies = DependenciesOf(planner, i);
        planner.plan.mostTries += dependencies.size() + 1;
        for (const BootStep &step : dependencies) {
            Start(planner, step);
        }
        Start(planner, {.service = i, .startedFor = i});
    }
    RemarkGroupOrder(planner);
    return planner.plan;
}
