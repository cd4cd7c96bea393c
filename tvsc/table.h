// SPDX-License-Identifier: MIT
// table: text in columns.
#pragma once

#include "tvsc/terminal.h"

#include <string>
#include <vector>

// What stands before a line of a table, and the colour of it and of one of its cells.
struct RowMark {
    std::string mark;
    Colour colour = Colour::none;
    std::size_t colouredCell = 0;
};

inline constexpr std::size_t columnsKept = 2;

// Columns as wide as their widest cell, but for the last one; with marks, one before each line. Cells need not be
// printable. At a terminal no line is wider than it: the columns behind the first `kept` are cut, then left out, the
// last one first; only then the first `kept` are cut, the widest one first. What was cut ends in an ellipsis.
//   kept  how many columns are never left out: they say what a line is about
[[nodiscard]] std::vector<std::string> TableLines(std::vector<std::vector<std::string>> rows,
                                                  const std::vector<RowMark> &marks = {},
                                                  std::size_t kept = columnsKept);
// Writes them to standard output; the first row, which is the heading, where one is wanted (output_format.h).
void PrintTable(std::vector<std::vector<std::string>> rows, std::vector<RowMark> marks = {},
                std::size_t kept = columnsKept);
