// SPDX-License-Identifier: MIT
// output_format: which rows a JSON object has, and which columns these have as tab-separated values.
//
// A row is an element of the one array that the object is about. Columns are the members that a script needs and that
// are numbers, words or texts; they stay where they are when one is added, which comes last.
#include "tvsc/output_format.h"

#include "util/json_text.h"
#include "util/printable.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

OutputFormat chosen = OutputFormat::table;
bool hasLegend = true;

struct RowsOfSchema {
    std::string_view schema;
    const char *member;
    const char *columns; // with blanks between them; a dot leads into an object
};

constexpr RowsOfSchema rowsOfSchemas[] = {
    {"tvsc.status/1", "services",
     "name state config.start pid_hint uptime_ms exit.win32 exit.service_specific config.group display_name"},
    {"tvsc.action/1", "results", "name action win32 exit_status text"},
    {"tvsc.relation/1", "services", "name state display_name"},
    {"tvsc.plan/1", "steps", "position name start reason needed_by image_path worst_case_s"},
    {"tvsc.act_plan/1", "steps", "action name why"},
    {"tvsc.findings/1", "findings", "level area name found why command"},
    {"tvsc.leftovers/1", "processes", "pid"},
    {"tvsc.rpcinfo/1", "entries", "daemon program version transport address owner"},
    {"tvsc.apply/1", "services", "name change"},
    {"tvsc.timeline/1", "services",
     "position name recorded pid win32 launched_after_ms asked_after_ms running_after_ms ended_after_ms"},
};

// Null for an object that is one row itself.
const RowsOfSchema *RowsOf(const Json &document) {
    const std::string schema = document.value("schema", "");
    const auto *const found = std::find_if(std::begin(rowsOfSchemas), std::end(rowsOfSchemas),
                                           [&](const RowsOfSchema &one) { return one.schema == schema; });
    return found == std::end(rowsOfSchemas) || !document.contains(found->member) ? nullptr : found;
}

std::string LinesText(const Json &document) {
    const RowsOfSchema *const rows = RowsOf(document);
    if (rows == nullptr) return JsonLine(document) + '\n';
    std::string text;
    for (const Json &row : document.at(rows->member)) {
        Json line = {{"schema", document.at("schema")}};
        for (const char *member : {"host", "host_bytes"}) {
            if (document.contains(member)) line[member] = document.at(member);
        }
        line.update(row);
        text += JsonLine(line) + '\n';
    }
    return text;
}

// Nothing that would end a cell, and nothing that a terminal would act on.
std::string CellText(const Json &value) {
    if (value.is_null()) return "";
    return Printable(value.is_string() ? value.get<std::string>() : value.dump(), Charset::utf8);
}

std::string CellOf(const Json &row, const std::string &column) {
    const std::size_t dot = column.find('.');
    const auto found = row.find(column.substr(0, dot));
    if (found == row.end()) return "";
    return dot == std::string::npos ? CellText(*found) : CellOf(*found, column.substr(dot + 1));
}

std::string ColumnsText(const Json &document) {
    const RowsOfSchema *const rows = RowsOf(document);
    if (rows == nullptr) return ""; // no command that may be asked for it
    std::istringstream words(rows->columns);
    std::vector<std::string> columns;
    for (std::string column; words >> column;) {
        columns.push_back(column);
    }
    std::string text;
    const auto add = [&](const auto &cellOf) {
        for (const std::string &column : columns) {
            text += cellOf(column) + (&column == &columns.back() ? '\n' : '\t');
        }
    };
    if (hasLegend) add([](const std::string &column) { return column; });
    for (const Json &row : document.at(rows->member)) {
        add([&](const std::string &column) { return CellOf(row, column); });
    }
    return text;
}

} // namespace

void ChooseFormat(OutputFormat format, bool showsLegend) {
    chosen = format;
    hasLegend = showsLegend;
}

bool ShowsLegend() { return hasLegend; }

std::string DocumentText(const Json &document) {
    switch (chosen) {
    case OutputFormat::jsonl: return LinesText(document);
    case OutputFormat::tsv: return ColumnsText(document);
    default: return JsonText(document) + '\n';
    }
}
