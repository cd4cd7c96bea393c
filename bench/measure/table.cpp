// SPDX-License-Identifier: MIT
// table: figures as they are printed.
#include "bench/measure/table.h"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <stdexcept>

namespace {

using Json = nlohmann::ordered_json;

// Three significant figures are more than a noisy machine gives.
std::string Short(double value) {
    if (value == 0) return "-";
    if (value >= 100) return fmt::format("{:.0f}", value);
    return value >= 10 ? fmt::format("{:.1f}", value) : fmt::format("{:.2f}", value);
}

std::string Cell(const std::optional<Figures> &figures, double Figures::*figure) {
    return figures ? Short((*figures).*figure) : "-";
}

std::string LimitText(const Judged &judged) {
    if (!judged.limit) return "-";
    return fmt::format("{} {}", judged.atLeast ? ">=" : "<=", Short(*judged.limit));
}

std::string Verdict(const Judged &judged) {
    if (!judged.limit) return "";
    return IsReached(judged) ? "yes" : "NO";
}

void PrintLine(const std::vector<std::string> &cells) {
    static constexpr int widths[] = {44, 16, 9, 9, 9, 9, 9, 9};
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i < 2) {
            line += fmt::format("{:<{}} ", cells[i], widths[i]);
        } else if (i < std::size(widths)) {
            line += fmt::format("{:>{}} ", cells[i], widths[i]);
        } else {
            line += " " + cells[i];
        }
    }
    std::puts(line.c_str());
    (void)std::fflush(stdout);
}

std::string ProcessorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown processor";
}

std::string Today() {
    const std::time_t now = std::time(nullptr);
    char text[32] = {};
    (void)std::strftime(text, sizeof text, "%Y-%m-%d", std::gmtime(&now));
    return text;
}

Json JsonOf(const std::optional<Figures> &figures) {
    if (!figures) return nullptr;
    return {{"median_us", figures->median}, {"p99_us", figures->p99}, {"server_cpu_us", figures->serverCpu}};
}

Json JsonOf(const Row &row) {
    Json json = {{"what", row.what},           {"setting", row.setting},    {"measured", JsonOf(row.measured)},
                 {"floor", JsonOf(row.floor)}, {"judged", row.judged.name}, {"value", row.judged.value}};
    if (row.judged.limit) {
        json[row.judged.atLeast ? "at_least" : "at_most"] = *row.judged.limit;
        json["reached"] = IsReached(row.judged);
    }
    return json;
}

} // namespace

bool IsReached(const Judged &judged) {
    if (!judged.limit) return true;
    return judged.atLeast ? judged.value >= *judged.limit : judged.value <= *judged.limit;
}

std::string MachineText() {
    utsname system = {};
    (void)uname(&system);
    return fmt::format("{}, {} processors, {} {} {}", ProcessorName(), sysconf(_SC_NPROCESSORS_ONLN), system.sysname,
                       system.release, system.machine);
}

void PrintHeading() {
    fmt::print("{}\nTimes in microseconds: median, 99th percentile, server CPU for each request.\n\n", MachineText());
    PrintLine({"what", "setting", "median", "p99", "CPU", "floor", "p99", "CPU", "judged"});
}

void PrintRow(const Row &row) {
    const Judged &judged = row.judged;
    PrintLine(
        {row.what, row.setting, Cell(row.measured, &Figures::median), Cell(row.measured, &Figures::p99),
         Cell(row.measured, &Figures::serverCpu), Cell(row.floor, &Figures::median), Cell(row.floor, &Figures::p99),
         Cell(row.floor, &Figures::serverCpu),
         fmt::format("{:<16} {:>7} {:>8} {}", judged.name, Short(judged.value), LimitText(judged), Verdict(judged))});
}

void WriteMarkdown(const std::string &file, const std::vector<Row> &rows, int rounds) {
    std::ofstream out(file);
    out << fmt::format("{}; {}; medians of {} rounds. Times in microseconds: median, 99th percentile, server CPU for "
                       "each request.\n\n",
                       MachineText(), Today(), rounds);
    out << "| what | setting | median | p99 | CPU | floor | p99 | CPU | judged | | limit | |\n"
           "|---|---|---:|---:|---:|---:|---:|---:|---|---:|---:|---|\n";
    for (const Row &row : rows) {
        const Judged &judged = row.judged;
        out << fmt::format("| {} | {} | {} | {} | {} | {} | {} | {} | {} | {} | {} | {} |\n", row.what, row.setting,
                           Cell(row.measured, &Figures::median), Cell(row.measured, &Figures::p99),
                           Cell(row.measured, &Figures::serverCpu), Cell(row.floor, &Figures::median),
                           Cell(row.floor, &Figures::p99), Cell(row.floor, &Figures::serverCpu), judged.name,
                           Short(judged.value), LimitText(judged), Verdict(judged));
    }
    if (!out) throw std::runtime_error(file + " cannot be written");
}

void WriteJson(const std::string &file, const std::vector<Row> &rows, int rounds) {
    Json json = {{"machine", MachineText()}, {"date", Today()}, {"rounds", rounds}, {"rows", Json::array()}};
    for (const Row &row : rows) {
        json["rows"].push_back(JsonOf(row));
    }
    std::ofstream out(file);
    out << json.dump(2) << '\n';
    if (!out) throw std::runtime_error(file + " cannot be written");
}
