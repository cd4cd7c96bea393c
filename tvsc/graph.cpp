// SPDX-License-Identifier: MIT
// graph: showing what depends on what, as a tree of text or as a drawing.
//
// SVG is graphviz's work: dot reads the text that "dot" writes and writes to our standard output.
#include "tvsc/graph.h"

#include "tvsc/graph_drawing.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <sys/wait.h>

namespace {

// The nodes that were asked for and all that these need.
std::vector<bool> Wanted(const ServiceGraph &graph, const std::vector<std::string> &names) {
    std::vector<bool> wanted(graph.nodes.size(), names.empty());
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        const bool isNamed = std::find(names.begin(), names.end(), graph.nodes[i].view.service.name) != names.end();
        if (isNamed) open.push_back(i);
    }
    while (!open.empty()) {
        const std::size_t node = open.back();
        open.pop_back();
        if (wanted[node]) continue;
        wanted[node] = true;
        open.insert(open.end(), graph.nodes[node].needs.begin(), graph.nodes[node].needs.end());
    }
    return wanted;
}

// --- text ---

struct Branch {
    std::size_t node;
    std::string indent;
    std::vector<std::size_t> above; // from the root on
    bool isLast;
};

std::string NodeText(const GraphNode &node) {
    const RowMark mark = MarkOf(node.view.service.status, node.view.process);
    return fmt::format("{} {}  {}", Coloured(mark.colour, mark.mark), Printable(node.view.service.name),
                       Coloured(mark.colour, StateText(node.view.service.status, node.view.process)));
}

void PrintTree(const ServiceGraph &graph, std::size_t root) {
    const bool utf8 = CharsetShown() == Charset::utf8;
    std::vector<Branch> open = {{root, "", {}, true}};
    while (!open.empty()) {
        const Branch branch = open.back();
        open.pop_back();
        const GraphNode &node = graph.nodes[branch.node];
        const bool isRoot = branch.above.empty();
        const bool isRing = std::find(branch.above.begin(), branch.above.end(), branch.node) != branch.above.end();
        const std::string fork = isRoot ? "" : branch.isLast ? (utf8 ? "└─ " : "`- ") : (utf8 ? "├─ " : "|- ");
        fmt::print("{}{}{}\n", branch.indent, fork,
                   NodeText(node) + (isRing ? Coloured(Colour::red, "  depends on itself: a ring") : ""));
        if (isRing) continue;
        const std::string below = branch.indent + (isRoot ? "" : branch.isLast ? "   " : utf8 ? "│  " : "|  ");
        std::vector<std::size_t> above = branch.above;
        above.push_back(branch.node);
        for (const std::string &unknown : node.unknown) {
            fmt::print("{}{}? {}  is not there\n", below, utf8 ? "├─ " : "|- ", Printable(unknown));
        }
        for (std::size_t i = node.needs.size(); i-- > 0;) {
            open.push_back({node.needs[i], below, above, i + 1 == node.needs.size()});
        }
    }
}

// Those that nobody depends on; where all of a ring are depended on, the first of it.
std::vector<std::size_t> Roots(const ServiceGraph &graph) {
    std::vector<bool> isNeeded(graph.nodes.size());
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        for (const std::size_t needed : graph.nodes[i].needs) {
            isNeeded[needed] = isNeeded[needed] || !IsRingEdge(graph, i, needed);
        }
    }
    std::vector<std::size_t> roots;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        const bool isLaterInRing =
            graph.nodes[i].isInRing && std::any_of(roots.begin(), roots.end(), [&](std::size_t root) {
                return graph.nodes[root].isInRing && IsRingEdge(graph, root, i);
            });
        if (!isNeeded[i] && !isLaterInRing) roots.push_back(i);
    }
    return roots;
}

int Draw(Session &session, const std::string &dot) {
    (void)std::fflush(stdout);
    FILE *const graphviz = popen("exec dot -Tsvg", "we");
    const bool isWritten = graphviz != nullptr && std::fwrite(dot.data(), 1, dot.size(), graphviz) == dot.size();
    const int status = graphviz != nullptr ? pclose(graphviz) : -1;
    if (isWritten && status == 0) return EXIT_DONE;
    Failed(session, "dot", "graph", ERROR_FILE_NOT_FOUND, "graphviz could not draw it; is it installed?");
    session.results.back().exitStatus = EXIT_FAILED;
    return Finish(session);
}

} // namespace

int RunGraph(Session &session, const std::vector<std::string> &names, GraphFormat format) {
    ServiceGraph graph;
    const std::vector<std::string> resolved = ResolveNames(session, names, "graph");
    if (!session.results.empty()) return Finish(session);
    if (!ReadGraph(session, "graph", &graph)) return Finish(session);
    const std::vector<bool> wanted = Wanted(graph, resolved);
    if (session.options.json) {
        PrintGraphJson(session, graph, wanted);
        return EXIT_DONE;
    }
    if (format == GraphFormat::svg) return Draw(session, DotText(graph, wanted));
    if (format == GraphFormat::dot || format == GraphFormat::mermaid) {
        fmt::print("{}", format == GraphFormat::dot ? DotText(graph, wanted) : MermaidText(graph, wanted));
        return EXIT_DONE;
    }
    if (resolved.empty()) {
        for (const std::size_t root : Roots(graph)) {
            PrintTree(graph, root);
        }
    }
    for (const std::string &name : resolved) {
        PrintTree(graph, static_cast<std::size_t>(FindNode(graph, name) - graph.nodes.data()));
    }
    return EXIT_DONE;
}
