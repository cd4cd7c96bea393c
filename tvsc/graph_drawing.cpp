// SPDX-License-Identifier: MIT
// graph_drawing: nodes by their groups, then edges, in the words of each drawing program.
#include "tvsc/graph_drawing.h"

#include "util/printable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

// What a colour stands for is the same in all drawings.
struct Look {
    const char *name;
    const char *fill;
};
constexpr Look failedLook = {"failed", "#f4b6b6"}, runningLook = {"running", "#b7e1b0"},
               stoppedLook = {"stopped", "#e4e4e4"}, otherLook = {"changing", "#f6e3a1"};

const Look &LookOf(const GraphNode &node) {
    const SERVICE_STATUS &status = node.view.service.status;
    if (HasFailed(status) || node.view.process.isGone) return failedLook;
    switch (status.dwCurrentState) {
    case SERVICE_RUNNING: return runningLook;
    case SERVICE_STOPPED: return stoppedLook;
    default: return otherLook;
    }
}

constexpr const char *missingText = "is not there";

struct Frame {
    std::string group; // empty: no frame
    std::vector<std::size_t> nodes;
};

std::vector<Frame> FramesOf(const ServiceGraph &graph, const std::vector<bool> &wanted) {
    std::vector<Frame> frames;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        if (!wanted[i]) continue;
        const GraphNode &node = graph.nodes[i];
        const std::string group = node.view.config ? node.view.config->group : "";
        auto found = std::find_if(frames.begin(), frames.end(), [&](const Frame &one) { return one.group == group; });
        if (found == frames.end()) found = frames.insert(frames.end(), {group, {}});
        found->nodes.push_back(i);
    }
    return frames;
}

std::string StateOf(const GraphNode &node) { return StateText(node.view.service.status, node.view.process); }

// --- for graphviz ---

std::string Escaped(const std::string &text) {
    std::string quoted;
    for (const char c : Printable(text, Charset::utf8)) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted;
}

std::string Quoted(const std::string &text) { return '"' + Escaped(text) + '"'; }

// Two lines.
std::string Quoted(const std::string &above, const std::string &below) {
    return '"' + Escaped(above) + "\\n" + Escaped(below) + '"';
}

std::string DotNode(std::size_t number, const GraphNode &node) {
    return fmt::format("  n{} [label={}, fillcolor=\"{}\"{}];\n", number, Quoted(node.view.service.name, StateOf(node)),
                       LookOf(node).fill, node.isInRing ? ", color=red, penwidth=2" : "");
}

std::string DotFrame(const ServiceGraph &graph, std::size_t number, const Frame &frame) {
    std::string nodes;
    for (const std::size_t node : frame.nodes) {
        nodes += DotNode(node, graph.nodes[node]);
    }
    if (frame.group.empty()) return nodes;
    return fmt::format("  subgraph cluster_{} {{ label={}; style=dashed; fontname=\"sans-serif\";\n{}  }}\n", number,
                       Quoted("group " + frame.group), nodes);
}

// --- for Mermaid ---

// Mermaid knows no backslashes; characters that mean something to it are told by their numbers.
std::string MermaidEscaped(const std::string &text) {
    std::string escaped;
    for (const char c : Printable(text, Charset::utf8)) {
        if (std::string_view("\"#&<>`").find(c) == std::string_view::npos) {
            escaped += c;
        } else {
            escaped += fmt::format("#{};", static_cast<int>(c));
        }
    }
    return escaped;
}

std::string MermaidNode(const std::string &id, const std::string &above, const std::string &below, const char *look) {
    return fmt::format("  {}[\"{}<br/>{}\"]:::{}\n", id, MermaidEscaped(above), MermaidEscaped(below), look);
}

std::string MermaidFrame(const ServiceGraph &graph, std::size_t number, const Frame &frame) {
    std::string nodes;
    for (const std::size_t i : frame.nodes) {
        const GraphNode &node = graph.nodes[i];
        nodes += MermaidNode(fmt::format("n{}", i), node.view.service.name, StateOf(node), LookOf(node).name);
    }
    if (frame.group.empty()) return nodes;
    return fmt::format("  subgraph g{} [\"group {}\"]\n{}  end\n", number, MermaidEscaped(frame.group), nodes);
}

std::string MermaidLooks() {
    std::string text;
    for (const Look &look : {failedLook, runningLook, stoppedLook, otherLook}) {
        text += fmt::format("  classDef {} fill:{},color:black,stroke:#666\n", look.name, look.fill);
    }
    return text + "  classDef missing fill:none,stroke-dasharray:4\n  classDef ring stroke:red,stroke-width:2px\n";
}

// A line that gives a look to several things by their numbers; nothing where there are none.
std::string MermaidLine(const char *what, const std::vector<std::string> &numbers, const char *look) {
    return numbers.empty() ? "" : fmt::format("  {} {} {}\n", what, fmt::join(numbers, ","), look);
}

} // namespace

std::string DotText(const ServiceGraph &graph, const std::vector<bool> &wanted) {
    std::string text = "digraph services {\n  rankdir=LR;\n  node [shape=box, style=\"filled,rounded\", "
                       "fontname=\"sans-serif\", fontsize=11];\n";
    const std::vector<Frame> frames = FramesOf(graph, wanted);
    for (std::size_t f = 0; f < frames.size(); ++f) {
        text += DotFrame(graph, f, frames[f]);
    }
    std::size_t missing = 0;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        if (!wanted[i]) continue;
        for (const std::size_t needed : graph.nodes[i].needs) {
            text += fmt::format("  n{} -> n{}{};\n", i, needed,
                                IsRingEdge(graph, i, needed) ? " [color=red, penwidth=2]" : "");
        }
        for (const std::string &unknown : graph.nodes[i].unknown) {
            text += fmt::format("  m{} [label={}, style=\"dashed,rounded\"];\n  n{} -> m{} [style=dashed];\n", missing,
                                Quoted(unknown, missingText), i, missing);
            ++missing;
        }
    }
    return text + "}\n";
}

std::string MermaidText(const ServiceGraph &graph, const std::vector<bool> &wanted) {
    std::string text = "flowchart LR\n";
    const std::vector<Frame> frames = FramesOf(graph, wanted);
    for (std::size_t f = 0; f < frames.size(); ++f) {
        text += MermaidFrame(graph, f, frames[f]);
    }
    std::size_t edge = 0, missing = 0; // edges have numbers in the order in which they are told
    std::vector<std::string> ringNodes, ringEdges;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        if (!wanted[i]) continue;
        if (graph.nodes[i].isInRing) ringNodes.push_back(fmt::format("n{}", i));
        for (const std::size_t needed : graph.nodes[i].needs) {
            if (IsRingEdge(graph, i, needed)) ringEdges.push_back(std::to_string(edge));
            text += fmt::format("  n{} --> n{}\n", i, needed);
            ++edge;
        }
        for (const std::string &unknown : graph.nodes[i].unknown) {
            const std::string id = fmt::format("m{}", missing++);
            text += MermaidNode(id, unknown, missingText, "missing") + fmt::format("  n{} -.-> {}\n", i, id);
            ++edge;
        }
    }
    return text + MermaidLooks() + MermaidLine("class", ringNodes, "ring") +
           MermaidLine("linkStyle", ringEdges, "stroke:red,stroke-width:2px");
}
