// SPDX-License-Identifier: MIT
// table: columns are as wide as they look, which the terminal's library tells.
#include "tvsc/table.h"

#include "tvsc/output_format.h"
#include "util/printable.h"
#include "util/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cwchar>
#include <numeric>

namespace {

constexpr std::size_t leastColumn = 6; // a column is cut down to so many
constexpr std::size_t gap = 2;

// Takes the first character of a printable text off. Returns its columns; nothing is left of what is no character.
std::size_t TakeShown(std::string_view *printable) {
    std::uint32_t c = 0;
    if (!TakeUtf8(printable, &c)) {
        *printable = {};
        return 0;
    }
    return static_cast<std::size_t>(std::max(wcwidth(static_cast<wchar_t>(c)), 0));
}

// Columns that a printable text takes.
std::size_t ShownWidth(std::string_view printable) {
    if (IsPlain(printable)) return printable.size();
    std::size_t width = 0;
    while (!printable.empty()) {
        width += TakeShown(&printable);
    }
    return width;
}

// The text, or as much of it as fits before an ellipsis.
std::string Cut(const std::string &text, std::size_t width) {
    if (ShownWidth(text) <= width) return text;
    const char *ellipsis = CharsetShown() == Charset::utf8 ? "…" : "~";
    std::string_view rest = text;
    std::size_t shown = 0, end = 0;
    while (!rest.empty() && width > 0) {
        const std::size_t columns = TakeShown(&rest);
        if (shown + columns > width - 1) break;
        shown += columns;
        end = text.size() - rest.size();
    }
    return width == 0 ? "" : text.substr(0, end) + ellipsis;
}

std::string Padded(const std::string &text, std::size_t width) {
    return text + std::string(width - std::min(width, ShownWidth(text)), ' ');
}

// Columns that all of them take, with a mark before them or without.
std::size_t TotalWidth(const std::vector<std::size_t> &widths, std::size_t markWidth) {
    std::size_t total = markWidth;
    std::size_t columns = 0;
    for (const std::size_t width : widths) {
        if (width == 0) continue;
        total += width + (columns++ == 0 ? 0 : gap);
    }
    return total;
}

// Takes from a column what is too much, down to `floor`.
void Shrink(std::vector<std::size_t> *widths, std::size_t i, std::size_t floor, std::size_t markWidth,
            std::size_t available) {
    const std::size_t total = TotalWidth(*widths, markWidth);
    std::size_t &width = (*widths)[i];
    if (total <= available || width <= floor) return;
    const std::size_t tooMuch = total - available;
    width = width > tooMuch + floor ? width - tooMuch : floor;
}

// Makes columns fit, from the last to the first: all but those that are kept are cut, then left out; only then these
// are cut, the widest one first.
void Fit(std::vector<std::size_t> *widths, std::size_t kept, std::size_t markWidth, std::size_t available) {
    for (const std::size_t floor : {leastColumn, std::size_t{0}}) {
        for (std::size_t i = widths->size(); i-- > kept;) {
            Shrink(widths, i, floor, markWidth, available);
        }
    }
    std::vector<std::size_t> widestFirst(std::min(kept, widths->size()));
    std::iota(widestFirst.begin(), widestFirst.end(), std::size_t{0});
    std::stable_sort(widestFirst.begin(), widestFirst.end(),
                     [&](std::size_t a, std::size_t b) { return (*widths)[a] > (*widths)[b]; });
    for (const std::size_t column : widestFirst) {
        Shrink(widths, column, leastColumn, markWidth, available);
    }
}

} // namespace

std::vector<std::string> TableLines(std::vector<std::vector<std::string>> rows, const std::vector<RowMark> &marks,
                                    std::size_t kept) {
    std::vector<std::string> lines;
    std::vector<std::size_t> widths;
    for (auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = Printable(row[i]);
            widths[i] = std::max(widths[i], ShownWidth(row[i]));
        }
    }
    const std::size_t markWidth = marks.empty() ? 0 : 2;
    if (const std::optional<std::size_t> available = TerminalWidth()) Fit(&widths, kept, markWidth, *available);
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const RowMark mark = marks.empty() ? RowMark() : marks[r];
        std::string line = marks.empty() ? "" : Coloured(mark.colour, mark.mark) + " ";
        std::size_t pending = 0; // blanks that stand before a cell only
        bool isFirst = true;
        for (std::size_t i = 0; i < rows[r].size(); ++i) {
            if (widths[i] == 0) continue;
            if (!isFirst) pending += gap;
            isFirst = false;
            const std::string cell = Cut(rows[r][i], widths[i]);
            if (cell.empty()) {
                pending += widths[i];
                continue;
            }
            line += std::string(pending, ' ') + (i == mark.colouredCell ? Coloured(mark.colour, cell) : cell);
            pending = Padded(cell, widths[i]).size() - cell.size();
        }
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return lines;
}

void PrintTable(std::vector<std::vector<std::string>> rows, std::vector<RowMark> marks, std::size_t kept) {
    if (!ShowsLegend()) rows.erase(rows.begin());
    if (!ShowsLegend() && !marks.empty()) marks.erase(marks.begin());
    for (const std::string &line : TableLines(std::move(rows), marks, kept)) {
        fmt::print("{}\n", line);
    }
}
