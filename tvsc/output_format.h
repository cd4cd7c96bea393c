// SPDX-License-Identifier: MIT
// output_format: how what a command tells is written. Chosen once, for the whole program.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

// jsonl: each row of the JSON object on a line of its own. tsv: the columns of these rows, with tabs between them.
enum class OutputFormat { table, json, jsonl, tsv };

void ChooseFormat(OutputFormat format, bool showsLegend);

// Whether tables have a heading and a last line that sums up.
[[nodiscard]] bool ShowsLegend();

// A JSON object of a schema in the format that was chosen; as JSON where that is a table.
[[nodiscard]] std::string DocumentText(const nlohmann::ordered_json &document);
