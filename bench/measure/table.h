// SPDX-License-Identifier: MIT
// table: what was measured, as a table for people and as JSON for programs.
#pragma once

#include "bench/measure/sampling.h"

#include <optional>
#include <string>
#include <vector>

// A figure that is held against a limit.
struct Judged {
    std::string name; // what it is: "time / floor", "MB"
    double value = 0;
    std::optional<double> limit = {}; // none: shown for comparison only
    bool atLeast = false;             // the limit is the least, not the most
};

struct Row {
    std::string what;
    std::string setting; // "pinned", "1,000 services"
    std::optional<Figures> measured = {};
    std::optional<Figures> floor = {};
    Judged judged = {};
};

bool IsReached(const Judged &judged); // true also where there is no limit

// The machine in one line: processor, number of processors, kernel, libraries.
std::string MachineText();

void PrintRow(const Row &row); // one line of the table, as soon as it is known
void PrintHeading();
// The table of bench/README.md: the machine and the day, then the rows.
void WriteMarkdown(const std::string &file, const std::vector<Row> &rows, int rounds);
void WriteJson(const std::string &file, const std::vector<Row> &rows, int rounds);
