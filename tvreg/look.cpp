// SPDX-License-Identifier: MIT
// look: short ways to look into the registry.
#include "tvreg/commands.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <climits>

namespace {

// Lines of a tree as the locale can show them.
struct Branches {
    const char *between, *last, *passing, *behind;
};
constexpr Branches drawn = {"├── ", "└── ", "│   ", "    "};
constexpr Branches typed = {"|-- ", "`-- ", "|   ", "    "};

struct Counts {
    std::size_t keys = 0, values = 0;
};

void PrintBranch(const KeyPath &key, const Branches &branches, const std::string &indent, unsigned depth,
                 Counts *counts) {
    const KeyContent content = ReadKey(key);
    counts->values += content.values.size();
    if (depth == 0) return;
    for (std::size_t i = 0; i < content.subKeys.size(); ++i) {
        const bool isLast = i + 1 == content.subKeys.size();
        ++counts->keys;
        Print(
            fmt::format("{}{}{}\n", indent, isLast ? branches.last : branches.between, Printable(content.subKeys[i])));
        PrintBranch(Below(key, content.subKeys[i]), branches, indent + (isLast ? branches.behind : branches.passing),
                    depth - 1, counts);
    }
}

Json TreeJson(const KeyPath &key, const std::string &name, unsigned depth) {
    const KeyContent content = ReadKey(key);
    Json object;
    SetText(object, "name", name);
    object["values"] = content.values.size();
    object["subkeys"] = Json::array();
    for (const std::string &subKey : content.subKeys) {
        if (depth > 0) object["subkeys"].push_back(TreeJson(Below(key, subKey), subKey, depth - 1));
    }
    return object;
}

} // namespace

int List(const Options &options) {
    const KeyPath key = KeyOf(options);
    std::vector<std::string> names;
    if (options.recursive) {
        ForEachKey(key, [&](const KeyPath &next, KeyContent &) {
            if (next.path.size() > key.path.size()) {
                names.push_back(next.path.substr(key.path.empty() ? 0 : key.path.size() + 1));
            }
        });
    } else {
        names = ReadKey(key).subKeys;
    }
    if (options.json) {
        Json object = {{"schema", "tvreg.ls/1"}};
        SetText(object, "key", KeyPathText(key));
        SetTexts(object, "subkeys", names);
        PrintJson(object);
        return 0;
    }
    for (const std::string &name : names) {
        Print(Printable(name) + "\n");
    }
    return 0;
}

int Get(const Options &options) {
    const RegValue value = ReadValue(KeyOf(options), options.valueName);
    if (options.json) {
        Json object = {{"schema", "tvreg.value/1"}};
        object.update(ValueJson(value));
        PrintJson(object);
    } else {
        Print(options.raw ? value.data : DataText(value, options.separator) + "\n");
    }
    return 0;
}

int Tree(const Options &options) {
    const KeyPath key = KeyOf(options);
    const unsigned depth = options.depth.value_or(UINT_MAX);
    if (options.json) {
        Json object = {{"schema", "tvreg.tree/1"}};
        object.update(TreeJson(key, KeyPathText(key), depth));
        PrintJson(object);
        return 0;
    }
    Counts counts;
    const bool isOpen = KeyExists(key);
    if (isOpen) Print(Printable(KeyPathText(key)) + "\n");
    PrintBranch(key, CharsetShown() == Charset::utf8 ? drawn : typed, "", depth, &counts);
    Print(fmt::format("{} key{} below, {} value{}\n", counts.keys, counts.keys == 1 ? "" : "s", counts.values,
                      counts.values == 1 ? "" : "s"));
    return 0;
}

int Version(const Options &options) {
    HKEY key = 0;
    DWORD major = 0, minor = 0, patch = 0;
    Check(RegOpenKeyExA(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_ALL_ACCESS, &key), "registry daemon");
    Check(RegQueryVersionInfo(&major, &minor, &patch), "registry daemon");
    if (options.json) {
        PrintJson({{"schema", "tvreg.version/1"}, {"major", major}, {"minor", minor}, {"patch", patch}});
    } else {
        Print(fmt::format("registry daemon {}.{}.{}\n", major, minor, patch));
    }
    return 0;
}
