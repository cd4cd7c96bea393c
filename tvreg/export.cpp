// SPDX-License-Identifier: MIT
// export: keys as .reg text, to a file or to standard output.
#include "tvreg/commands.h"
#include "tvreg/encoding.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace {

// What a terminal cannot show as it is, is not for it: UTF-16, ends of lines with CR, control characters.
void PrintAtTerminal(const std::string &regText) {
    std::string text;
    if (!TextOfFile(regText, {}, &text)) text = regText;
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        Print(Printable(line) + "\n");
    }
}

std::string JsonOf(const std::vector<RegKey> &keys) {
    Json object = {{"schema", "tvreg.export/1"}, {"keys", Json::array()}};
    for (const RegKey &key : keys) {
        Json entry;
        SetText(entry, "key", KeyPathText(key.key));
        entry["values"] = Json::array();
        for (const RegValue &value : key.values) {
            entry["values"].push_back(ValueJson(value));
        }
        object["keys"].push_back(std::move(entry));
    }
    return JsonText(object) + "\n";
}

std::string RegTextOf(const std::vector<RegKey> &keys, RegDialect dialect) {
    std::string text, culprit;
    if (WriteRegText(keys, dialect, &text, &culprit)) return text;
    throw Failure(EXIT_BAD_TEXT,
                  fmt::format("{}: cannot stand in this kind of file{}", culprit,
                              dialect == RegDialect::regedit4 ? "" : " because it is not UTF-8; try --reg4"));
}

} // namespace

int Export(const Options &options) {
    const std::vector<RegKey> keys = ReadKeys(KeyOf(options));
    const std::string text =
        options.json ? JsonOf(keys) : RegTextOf(keys, options.reg4 ? RegDialect::regedit4 : RegDialect::version5);
    if (options.file.value_or("-") != "-") {
        WriteFile(*options.file, text);
    } else if (isatty(STDOUT_FILENO) == 1) {
        PrintAtTerminal(text);
    } else {
        Print(text);
    }
    return 0;
}
