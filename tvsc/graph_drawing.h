// SPDX-License-Identifier: MIT
// graph_drawing: a graph as text for programs that draw it. States are coloured, load-order groups are frames, edges of
// a ring are red, and what is depended on and not there is dashed.
#pragma once

#include "tvsc/service_graph.h"

// For graphviz; in UTF-8 whatever the locale. Only the nodes that are wanted, by their index.
[[nodiscard]] std::string DotText(const ServiceGraph &graph, const std::vector<bool> &wanted);
// For Mermaid, alike.
[[nodiscard]] std::string MermaidText(const ServiceGraph &graph, const std::vector<bool> &wanted);
