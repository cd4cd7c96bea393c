// SPDX-License-Identifier: MIT
// timeline_svg: the timeline as a picture: a row for each service, seconds to the right.
#include "tvsc/timeline.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr int labelWidth = 200;
constexpr int plotWidth = 640;
constexpr int rowHeight = 24;
constexpr int barHeight = 14;
constexpr int plotTop = 78; // above: title and legend
constexpr int margin = 12;
constexpr std::size_t longestLabel = 28; // characters; more would run into the plot
constexpr int widthOfEnd = margin + 60;  // for what stands behind a bar at its end

constexpr char launchColour[] = "#b9c7da";
constexpr char startColour[] = "#6aa86a";
constexpr char failedColour[] = "#d9534f";

// A printable text in XML.
std::string Escaped(const std::string &text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        default: escaped += c;
        }
    }
    return escaped;
}

// How many bytes of a printable text have room as a label: all, or the first characters.
std::size_t LabelBytes(const std::string &shown) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const bool isFirstByte = (static_cast<unsigned char>(shown[i]) & 0xC0u) != 0x80u;
        if (isFirstByte && ++characters > longestLabel) return i;
    }
    return shown.size();
}

// A step between two marks of the axis that makes about eight of them: 1, 2 or 5 times a power of ten, in ms.
std::int64_t AxisStep(std::int64_t spanMs) {
    std::int64_t step = 1;
    for (;;) {
        for (const std::int64_t factor : {1, 2, 5}) {
            if (step * factor * 8 >= spanMs) return step * factor;
        }
        step *= 10;
    }
}

std::string Text(int x, int y, const char *further, const std::string &text) {
    return fmt::format("  <text x=\"{}\" y=\"{}\"{}>{}</text>\n", x, y, further, Escaped(text));
}

// A service's name. What has no room is there and takes none, with an ellipsis beside it: who makes links of the names
// in a picture finds each of them whole.
std::string Label(const std::string &name, int y) {
    const std::string shown = Printable(name, Charset::utf8);
    const std::size_t bytes = LabelBytes(shown);
    const bool isWhole = bytes == shown.size();
    std::string label = fmt::format(
        "  <text x=\"{}\" y=\"{}\">{}{}<title>{}</title></text>\n", margin, y, Escaped(shown.substr(0, bytes)),
        isWhole ? ""
                : fmt::format("<tspan font-size=\"0\" fill-opacity=\"0\">{}</tspan>", Escaped(shown.substr(bytes))),
        Escaped(shown));
    if (!isWhole) label += Text(labelWidth - margin, y, "", "…");
    return label;
}

// Where a moment stands, counted from the daemon's start.
struct Scale {
    std::int64_t beginMs;
    std::int64_t spanMs;
};

double PlaceOf(const Scale &scale, std::int64_t ms) {
    const std::int64_t at = std::clamp<std::int64_t>(ms - scale.beginMs, 0, scale.spanMs);
    return labelWidth + static_cast<double>(at) * plotWidth / static_cast<double>(scale.spanMs);
}

std::string Bar(const Scale &scale, std::int64_t fromMs, std::int64_t toMs, int y, const char *colour,
                const std::string &tip) {
    const double from = PlaceOf(scale, fromMs);
    const double width = std::max(PlaceOf(scale, toMs) - from, 1.0);
    return fmt::format("  <rect x=\"{:.1f}\" y=\"{}\" width=\"{:.1f}\" height=\"{}\" "
                       "fill=\"{}\"><title>{}</title></rect>\n",
                       from, y, width, barHeight, colour, Escaped(tip));
}

std::string Row(const Timeline &timeline, const Scale &scale, const TimelineStep &step, int y) {
    std::string row = Label(step.name, y + barHeight - 2);
    if (!step.run) {
        const char *why = step.runsAgain ? "started later" : "no record of a start";
        return row + Text(labelWidth + 4, y + barHeight - 2, " fill=\"#888\" font-style=\"italic\"", why);
    }
    const RunRecord &run = *step.run;
    const std::int64_t started = StartedMs(run);
    const std::int64_t end = started != 0 ? started : timeline.endMs;
    const bool hasFailed = run.runningMs == 0;
    row += Bar(scale, LaunchedMs(run), run.askedMs, y, launchColour,
               "launch: " + SecondsText(run.askedMs - LaunchedMs(run)));
    row += Bar(scale, run.askedMs, end, y, hasFailed ? failedColour : startColour,
               "start: " + SecondsText(end - run.askedMs));
    return row + Text(static_cast<int>(PlaceOf(scale, end)) + 4, y + barHeight - 2, " fill=\"#555\"",
                      SecondsText(end - LaunchedMs(run)));
}

std::string Axis(const Scale &scale, int bottom) {
    std::string axis;
    const std::int64_t step = AxisStep(scale.spanMs);
    for (std::int64_t at = 0; at <= scale.spanMs; at += step) {
        const double x = PlaceOf(scale, scale.beginMs + at);
        axis += fmt::format("  <line x1=\"{0:.1f}\" y1=\"{1}\" x2=\"{0:.1f}\" y2=\"{2}\" stroke=\"#ddd\"/>\n", x,
                            plotTop - 4, bottom);
        axis += Text(static_cast<int>(x), plotTop - 8, " fill=\"#555\" text-anchor=\"middle\"",
                     fmt::format("{:g} s", static_cast<double>(at) / 1000));
    }
    return axis;
}

std::string Legend() {
    constexpr std::array<std::pair<const char *, const char *>, 3> entries = {
        {{launchColour, "launch, until it is asked to start"},
         {startColour, "start, until it runs"},
         {failedColour, "has not come to run"}}};
    std::string legend;
    int x = margin;
    for (const auto &[colour, text] : entries) {
        legend += fmt::format("  <rect x=\"{}\" y=\"36\" width=\"12\" height=\"12\" fill=\"{}\"/>\n", x, colour);
        legend += Text(x + 17, 46, "", text);
        x += 230;
    }
    return legend;
}

} // namespace

std::string TimelineSvg(const Timeline &timeline, const std::string &title) {
    const int bottom = plotTop + static_cast<int>(timeline.steps.size()) * rowHeight;
    const int width = labelWidth + plotWidth + widthOfEnd;
    const Scale scale = {timeline.daemonStartMs, std::max<std::int64_t>(timeline.endMs - timeline.daemonStartMs, 1)};
    std::string svg =
        fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" "
                    "width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" font-family=\"sans-serif\" "
                    "font-size=\"12\">\n  <rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n",
                    width, bottom + margin);
    svg += Text(margin, 22, " font-size=\"14\" font-weight=\"bold\"", title) + Legend() + Axis(scale, bottom);
    int y = plotTop + (rowHeight - barHeight) / 2;
    for (const TimelineStep &step : timeline.steps) {
        svg += Row(timeline, scale, step, y);
        y += rowHeight;
    }
    if (timeline.answeredMs != 0) {
        svg += fmt::format("  <line x1=\"{0:.1f}\" y1=\"{1}\" x2=\"{0:.1f}\" y2=\"{2}\" stroke=\"#444\" "
                           "stroke-dasharray=\"4 3\"><title>the daemon answers</title></line>\n",
                           PlaceOf(scale, timeline.answeredMs), plotTop - 4, bottom);
    }
    return svg + "</svg>\n";
}
