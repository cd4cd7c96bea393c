// SPDX-License-Identifier: MIT
// boot_needs: what is wrong with the dependencies of all services, whether the daemon starts them with itself or not.
#include "tvsc/boot_plan.h"

#include "tv/winsvc.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace {

// The services, and behind them the groups, by number; each leads to what it needs or has as members.
using Nodes = std::vector<std::vector<std::size_t>>;

struct Needs {
    Nodes nodes;
    std::vector<BootRemark> remarks;
};

Needs ReadNeeds(const BootDatabase &database) {
    Needs needs;
    std::unordered_map<std::string_view, std::size_t> services, groups; // the first of each name
    needs.nodes.resize(database.services.size() + database.groups.size());
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        services.emplace(database.services[i].name, i);
    }
    for (std::size_t i = 0; i < database.groups.size(); ++i) {
        groups.emplace(database.groups[i].name, database.services.size() + i);
        needs.nodes[database.services.size() + i] = database.groups[i].members;
    }
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        const BootService &service = database.services[i];
        if (service.dependenciesCode != 0) needs.remarks.push_back({BootRemarkKind::unreadable, i, ""});
        for (const std::string &name : service.dependencies) {
            const bool isGroup = name.front() == SC_GROUP_IDENTIFIERA;
            const auto &known = isGroup ? groups : services;
            const auto found = known.find(isGroup ? std::string_view(name).substr(1) : std::string_view(name));
            const bool isThere = found != known.end() && !(isGroup && needs.nodes[found->second].empty());
            if (isThere) {
                needs.nodes[i].push_back(found->second);
            } else if (isGroup) {
                needs.remarks.push_back({BootRemarkKind::emptyGroup, i, name.substr(1)});
            } else {
                needs.remarks.push_back({BootRemarkKind::unknownService, i, name});
            }
        }
    }
    return needs;
}

// The nodes that lead to a ring or are in one: what is left when those that lead to nothing are taken away until there
// are none.
std::vector<bool> LeadingToRings(const Nodes &nodes) {
    std::vector<std::size_t> left(nodes.size()); // of what it leads to
    Nodes comingFrom(nodes.size());
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        left[i] = nodes[i].size();
        if (left[i] == 0) open.push_back(i);
        for (const std::size_t target : nodes[i]) {
            comingFrom[target].push_back(i);
        }
    }
    std::vector<bool> leads(nodes.size(), true);
    while (!open.empty()) {
        const std::size_t node = open.back();
        open.pop_back();
        leads[node] = false;
        for (const std::size_t before : comingFrom[node]) {
            if (--left[before] == 0) open.push_back(before);
        }
    }
    return leads;
}

// The shortest way from a node back to itself among those; empty where there is none.
std::vector<std::size_t> RingOf(const Nodes &nodes, const std::vector<bool> &among, std::size_t start) {
    std::vector<std::size_t> before(nodes.size(), nodes.size());
    std::vector<std::size_t> open = {start};
    for (std::size_t i = 0; i < open.size(); ++i) {
        for (const std::size_t target : nodes[open[i]]) {
            if (target == start) {
                std::vector<std::size_t> ring;
                for (std::size_t node = open[i]; node != start; node = before[node]) {
                    ring.push_back(node);
                }
                ring.push_back(start);
                return {ring.rbegin(), ring.rend()};
            }
            if (!among[target] || before[target] != nodes.size()) continue;
            before[target] = open[i];
            open.push_back(target);
        }
    }
    return {};
}

} // namespace

std::vector<BootRemark> RemarkNeeds(const BootDatabase &database) {
    Needs needs = ReadNeeds(database);
    std::vector<bool> leads = LeadingToRings(needs.nodes);
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        const std::vector<std::size_t> ring = leads[i] ? RingOf(needs.nodes, leads, i) : std::vector<std::size_t>();
        if (ring.empty()) continue;
        std::string text;
        for (const std::size_t node : ring) {
            leads[node] = false; // told once
            if (node < database.services.size()) text += database.services[node].name + " > ";
        }
        needs.remarks.push_back({BootRemarkKind::ring, i, text + database.services[i].name});
    }
    return needs.remarks;
}
