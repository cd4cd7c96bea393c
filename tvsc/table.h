// SPDX-License-Identifier: MIT
// table: text in columns.
#pragma once

#include <string>
#include <vector>

// Columns as wide as their widest cell, but for the last one; with marks, one before each line. Cells need not be
// printable.
void PrintTable(std::vector<std::vector<std::string>> rows, const std::vector<std::string> &marks = {});
