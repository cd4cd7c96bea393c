// SPDX-License-Identifier: MIT
// service_graph: all services of the daemon with what they depend on, read once.
#pragma once

#include "tvsc/service_view.h"

#include <set>

struct GraphNode {
    ServiceView view; // with its configuration, where that can be read
    std::vector<std::size_t>
        needs; // nodes, in the order of the configuration; those of groups behind their group's name
    std::vector<std::string> unknown; // what it depends on and is not there: services, and groups without members
    bool isInRing = false;            // it depends on itself, through others or not
};

struct ServiceGraph {
    std::vector<GraphNode> nodes; // in the daemon's order
};

// The node of a service, borrowed from the graph; null where it has none of this name.
[[nodiscard]] const GraphNode *FindNode(const ServiceGraph &graph, const std::string &name);

// Reads it. Where that fails it is told and noted, and false returned.
[[nodiscard]] bool ReadGraph(Session &session, const std::string &action, ServiceGraph *graph);

// The same from services whose needs are not known yet.
[[nodiscard]] ServiceGraph MakeGraph(std::vector<ServiceView> views);

// Whether the edge closes a ring: both ends are in one.
[[nodiscard]] bool IsRingEdge(const ServiceGraph &graph, std::size_t from, std::size_t to);

// Whether a ring can be reached from a node of the graph, itself included: the daemon's walk ends there.
[[nodiscard]] bool LeadsToRing(const ServiceGraph &graph, const GraphNode &from);
