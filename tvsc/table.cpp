// SPDX-License-Identifier: MIT
// table: columns are as wide as they look, which the terminal's library tells.
#include "tvsc/table.h"

#include "util/printable.h"
#include "util/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cwchar>

namespace {

// Columns that a printable text takes.
std::size_t ShownWidth(std::string_view printable) {
    std::size_t width = 0;
    for (std::uint32_t c = 0; !printable.empty() && TakeUtf8(&printable, &c);) {
        width += static_cast<std::size_t>(std::max(wcwidth(static_cast<wchar_t>(c)), 0));
    }
    return width;
}

std::string Padded(const std::string &text, std::size_t width) {
    return text + std::string(width - std::min(width, ShownWidth(text)), ' ');
}

} // namespace

void PrintTable(std::vector<std::vector<std::string>> rows, const std::vector<std::string> &marks) {
    std::vector<std::size_t> widths;
    for (auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = Printable(row[i]);
            widths[i] = std::max(widths[i], ShownWidth(row[i]));
        }
    }
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::string line = marks.empty() ? "" : marks[r] + " ";
        for (std::size_t i = 0; i < rows[r].size(); ++i) {
            line += (i == 0 ? "" : "  ") + Padded(rows[r][i], widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    }
}
