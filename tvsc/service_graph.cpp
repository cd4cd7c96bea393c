// SPDX-License-Identifier: MIT
// service_graph: from configurations to nodes, and looking for rings.
#include "tvsc/service_graph.h"

#include "tvsc/names.h"

#include <algorithm>
#include <map>

namespace {

using Names = std::map<std::string, std::vector<std::size_t>>;

void AddNeeds(GraphNode *node, const std::vector<std::size_t> &needed) {
    for (const std::size_t one : needed) {
        if (std::find(node->needs.begin(), node->needs.end(), one) == node->needs.end()) node->needs.push_back(one);
    }
}

// Whether one of the nodes that are given, or one that these need, is what is looked for. The walk keeps no stack of
// calls.
template <typename Condition>
bool IsAnyReached(const ServiceGraph &graph, std::vector<std::size_t> open, Condition isIt) {
    std::vector<bool> seen(graph.nodes.size());
    while (!open.empty()) {
        const std::size_t node = open.back();
        open.pop_back();
        if (isIt(node)) return true;
        if (seen[node]) continue;
        seen[node] = true;
        open.insert(open.end(), graph.nodes[node].needs.begin(), graph.nodes[node].needs.end());
    }
    return false;
}

bool IsReached(const ServiceGraph &graph, std::size_t from, std::size_t to) {
    return IsAnyReached(graph, graph.nodes[from].needs, [to](std::size_t node) { return node == to; });
}

} // namespace

const GraphNode *FindNode(const ServiceGraph &graph, const std::string &name) {
    const auto found = std::find_if(graph.nodes.begin(), graph.nodes.end(),
                                    [&](const GraphNode &node) { return node.view.service.name == name; });
    return found == graph.nodes.end() ? nullptr : &*found;
}

ServiceGraph MakeGraph(std::vector<ServiceView> views) {
    ServiceGraph graph;
    Names services, groups;
    for (ServiceView &view : views) {
        services[view.service.name].push_back(graph.nodes.size());
        if (view.config && !view.config->group.empty()) groups[view.config->group].push_back(graph.nodes.size());
        graph.nodes.push_back({.view = std::move(view), .needs = {}, .unknown = {}, .isInRing = false});
    }
    for (GraphNode &node : graph.nodes) {
        if (!node.view.config) continue;
        for (const std::string &dependency : node.view.config->dependencies) {
            const bool isGroup = dependency.front() == SC_GROUP_IDENTIFIERA;
            const Names &names = isGroup ? groups : services;
            const auto found = names.find(isGroup ? dependency.substr(1) : dependency);
            if (found == names.end()) {
                node.unknown.push_back(dependency);
            } else {
                AddNeeds(&node, found->second);
            }
        }
    }
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        graph.nodes[i].isInRing = IsReached(graph, i, i);
    }
    return graph;
}

bool ReadGraph(Session &session, const std::string &action, ServiceGraph *graph) {
    std::vector<ListedService> services;
    if (!ListServicesFor(session, action, &services)) return false;
    std::vector<ServiceView> views;
    for (const ListedService &service : services) {
        ServiceView view = ViewOf(session, service);
        view.config = ReadConfigByName(session, service.name);
        views.push_back(std::move(view));
    }
    *graph = MakeGraph(std::move(views));
    return true;
}

bool IsRingEdge(const ServiceGraph &graph, std::size_t from, std::size_t to) {
    return graph.nodes[from].isInRing && graph.nodes[to].isInRing && (from == to || IsReached(graph, to, from));
}

bool LeadsToRing(const ServiceGraph &graph, const GraphNode &from) {
    const auto index = static_cast<std::size_t>(&from - graph.nodes.data());
    return IsAnyReached(graph, {index}, [&](std::size_t node) { return graph.nodes[node].isInRing; });
}
