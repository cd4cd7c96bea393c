// SPDX-License-Identifier: MIT
// boot_plan: plays the daemon's automatic start without starting anything.
//
// The order is that of the records, whatever groups and tags say; before each automatic service come those that it
// depends on and that do not run yet, the deepest first. A walk over dependencies ends at a ring or at dependencies
// that cannot be read; what it had found until then is started all the same.
//
// The daemon walks anew for each automatic service, this once over all: a service that was walked to its end has
// nothing new to tell, and one that ended a walk ends every later walk that comes by at the same place. How often each
// start is tried when all fail follows from who leads to whom, for 64 automatic services at a time.
//
// The daemon's walk (servd/servd_svc_proc/dependencies.cpp) is another one: it reads the registry as it goes, marks its
// records and adds up bytes for a caller's buffer. tests/unit/load_order_property_test.cpp has both start the same
// services in the same order.
#include "tvsc/boot_plan.h"

#include "tv/winsvc.h"
#include "tvsc/account_mask.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <set>
#include <unordered_map>

namespace {

// What a walk comes to, by number: the services, behind them the groups, and behind those the rings that were found.
using Node = std::size_t;

enum class Walked : char {
    never,
    onTheWay, // on the stack
    whole,    // to its end
    broken,   // up to the place that ended the walk
};

// A service, or a group that a service names, on the stack.
struct Visit {
    Node node;
    BootStep step;             // of the service; of the one that names the group
    std::vector<Node> targets; // services and groups that it depends on; the members of a group
    std::size_t next = 0;      // the first target not yet walked
};

struct Planner {
    const BootDatabase *database;
    std::unordered_map<std::string_view, std::size_t> services; // by name
    std::unordered_map<std::string_view, std::size_t> groups;   // likewise, the first of each name
    std::vector<Walked> walked;                                 // by node
    std::vector<std::vector<Node>> leadsTo;                     // by node: as far as it was walked
    std::vector<Node> ended;                                    // walked nodes, each behind all that it leads to
    std::vector<char> started;                                  // by service
    std::set<BootRemark> told;
    BootPlan plan;
};

void Remark(Planner &planner, BootRemarkKind kind, std::size_t service, std::string text) {
    BootRemark remark = {kind, service, std::move(text)};
    if (planner.told.insert(remark).second) planner.plan.remarks.push_back(std::move(remark));
}

bool IsService(const Planner &planner, Node node) { return node < planner.database->services.size(); }

const BootGroup &GroupOf(const Planner &planner, Node node) {
    return planner.database->groups[node - planner.database->services.size()];
}

std::vector<Node> DependenciesOf(Planner &planner, std::size_t service) {
    const BootDatabase &database = *planner.database;
    std::vector<Node> dependencies;
    for (const std::string &name : database.services[service].dependencies) {
        if (name.front() == SC_GROUP_IDENTIFIERA) {
            const auto group = planner.groups.find(std::string_view(name).substr(1));
            if (group == planner.groups.end() || database.groups[group->second].members.empty()) {
                Remark(planner, BootRemarkKind::emptyGroup, service, name.substr(1));
            } else {
                dependencies.push_back(database.services.size() + group->second);
            }
        } else if (const auto found = planner.services.find(name); found != planner.services.end()) {
            dependencies.push_back(found->second);
        } else {
            Remark(planner, BootRemarkKind::unknownService, service, name);
        }
    }
    return dependencies;
}

// Tells a ring once, beginning with its first service.
void RemarkRing(Planner &planner, std::vector<std::size_t> ring) {
    std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end()), ring.end());
    std::string text;
    for (const std::size_t member : ring) {
        text += planner.database->services[member].name + " > ";
    }
    Remark(planner, BootRemarkKind::ring, ring.front(), text + planner.database->services[ring.front()].name);
}

// Closes the ring that the stack has come to at a node which is on it. Its members lead to all that one of them leads
// to: whichever the walk comes to first, it goes round.
void CloseRing(Planner &planner, const std::vector<Visit> &stack, Node node) {
    const auto first =
        std::find_if(stack.begin(), stack.end(), [node](const Visit &visit) { return visit.node == node; });
    const Node ring = planner.leadsTo.size();
    std::vector<std::size_t> services;
    std::vector<Node> targets;
    for (auto visit = first; visit != stack.end(); ++visit) {
        std::vector<Node> &leadsTo = planner.leadsTo[visit->node];
        targets.insert(targets.end(), leadsTo.begin(), leadsTo.end() - 1); // but the next member
        leadsTo = {ring};
        if (IsService(planner, visit->node)) services.push_back(visit->node);
    }
    planner.leadsTo.push_back(std::move(targets));
    planner.ended.push_back(ring);
    RemarkRing(planner, std::move(services));
}

// Begins the walk of a node. Returns false when the whole walk ends here.
bool Enter(Planner &planner, std::vector<Visit> &stack, Node node, const BootStep &step) {
    switch (planner.walked[node]) {
    case Walked::whole: return true;
    case Walked::broken: return false;
    case Walked::onTheWay: CloseRing(planner, stack, node); return false;
    case Walked::never: break;
    }
    if (IsService(planner, node) && planner.database->services[node].dependenciesCode != 0) {
        Remark(planner, BootRemarkKind::unreadable, node, "");
        planner.walked[node] = Walked::broken;
        planner.ended.push_back(node);
        return false;
    }
    planner.walked[node] = Walked::onTheWay;
    stack.push_back(
        {node, step, IsService(planner, node) ? DependenciesOf(planner, node) : GroupOf(planner, node).members});
    return true;
}

// Goes on from the innermost visit to its next target.
bool EnterNext(Planner &planner, std::vector<Visit> &stack) {
    Visit &visit = stack.back();
    const Node target = visit.targets[visit.next++];
    planner.leadsTo[visit.node].push_back(target);
    BootStep step = visit.step;
    if (IsService(planner, target)) {
        const bool isNamed = IsService(planner, visit.node);
        step.throughGroup = isNamed ? nullptr : &GroupOf(planner, visit.node).name;
        step.neededBy = visit.step.service;
        step.service = target;
    }
    return Enter(planner, stack, target, step);
}

// Walks from an automatic service. Returns what it depends on, but for what was found before.
std::vector<BootStep> Walk(Planner &planner, std::size_t root) {
    std::vector<BootStep> found;
    std::vector<Visit> stack;
    bool goesOn = Enter(planner, stack, root, {.service = root, .startedFor = root});
    while (goesOn && !stack.empty()) {
        const Visit &visit = stack.back();
        if (visit.next < visit.targets.size()) {
            goesOn = EnterNext(planner, stack);
            continue;
        }
        planner.walked[visit.node] = Walked::whole;
        planner.ended.push_back(visit.node);
        if (IsService(planner, visit.node) && visit.node != root) found.push_back(visit.step);
        stack.pop_back();
    }
    for (; !stack.empty(); stack.pop_back()) {
        planner.walked[stack.back().node] = Walked::broken;
        planner.ended.push_back(stack.back().node);
    }
    return found;
}

// Adds to each service how often the walks of up to 64 automatic services find it to start, as if each walked anew.
void CountTries(const Planner &planner, const std::size_t *roots, std::size_t count, std::vector<std::size_t> *tries) {
    std::vector<std::uint64_t> reachedFrom(planner.leadsTo.size()); // a bit for each root
    for (std::size_t i = 0; i < count; ++i) {
        reachedFrom[roots[i]] |= std::uint64_t{1} << i;
        const bool isCounted = planner.walked[roots[i]] != Walked::broken; // with what it reaches, like the others
        if (!isCounted && !IsMasked(planner.database->services[roots[i]])) ++(*tries)[roots[i]];
    }
    for (auto node = planner.ended.rbegin(); node != planner.ended.rend(); ++node) {
        const std::uint64_t reached = reachedFrom[*node];
        if (reached == 0) continue;
        const bool isStarted = IsService(planner, *node) && planner.walked[*node] == Walked::whole;
        const bool takesTime = isStarted && !IsMasked(planner.database->services[*node]); // or it is refused at once
        if (takesTime) (*tries)[*node] += static_cast<std::size_t>(std::popcount(reached));
        for (const Node target : planner.leadsTo[*node]) {
            reachedFrom[target] |= reached;
        }
    }
}

void Start(Planner &planner, const BootStep &step) {
    if (planner.started[step.service] != 0) return;
    planner.started[step.service] = 1;
    const BootService &service = planner.database->services[step.service];
    if (IsMasked(service)) return Remark(planner, BootRemarkKind::masked, step.service, "");
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

bool IsMasked(const BootService &service) { return service.account && IsMasked(*service.account); }

BootPlan PlanBoot(const BootDatabase &database) {
    const std::size_t nodes = database.services.size() + database.groups.size();
    Planner planner = {.database = &database,
                       .services = {},
                       .groups = {},
                       .walked = std::vector<Walked>(nodes, Walked::never),
                       .leadsTo = std::vector<std::vector<Node>>(nodes),
                       .ended = {},
                       .started = std::vector<char>(database.services.size()),
                       .told = {},
                       .plan = {}};
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        planner.services.emplace(database.services[i].name, i);
    }
    for (std::size_t i = 0; i < database.groups.size(); ++i) {
        planner.groups.emplace(database.groups[i].name, i);
    }
    std::vector<std::size_t> automatic;
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        if (!IsAutomatic(database.services[i])) continue;
        automatic.push_back(i);
        for (const BootStep &step : Walk(planner, i)) {
            Start(planner, step);
        }
        Start(planner, {.service = i, .startedFor = i});
    }
    constexpr std::size_t atATime = 64;
    std::vector<std::size_t> tries(database.services.size());
    for (std::size_t i = 0; i < automatic.size(); i += atATime) {
        CountTries(planner, &automatic[i], std::min(atATime, automatic.size() - i), &tries);
    }
    for (BootStep &step : planner.plan.steps) {
        step.mostTries = tries[step.service];
        planner.plan.mostTries += step.mostTries;
    }
    RemarkGroupOrder(planner);
    return planner.plan;
}
