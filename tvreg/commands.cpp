// SPDX-License-Identifier: MIT
// commands: looking into the registry, writing it, and .reg files.
#include "tvreg/commands.h"

#include "tvreg/encoding.h"
#include "tvreg/key_path.h"
#include "tvreg/output.h"
#include "tvreg/reg_text.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/ktl_strings.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <cstdio>
#include <iterator>

namespace {

// --- shared --------------------------------------------------------------------------------------------------------

KeyPath KeyOf(const Options &options) {
    KeyPath key;
    if (!ParseKeyOfHost(options.key, &key)) {
        throw Failure(EXIT_USAGE, fmt::format("{}: not a key: a root (HKLM, HKEY_LOCAL_MACHINE ...) and names with one "
                                              "backslash between them",
                                              options.key));
    }
    return key;
}

// --- looking -------------------------------------------------------------------------------------------------------

Json KeyJson(const KeyPath &key, const KeyContent &content) {
    Json object;
    SetText(object, "key", KeyPathText(key));
    object["values"] = Json::array();
    for (const RegValue &value : content.values) {
        object["values"].push_back(ValueJson(value));
    }
    SetTexts(object, "subkeys", content.subKeys);
    return object;
}

void PrintKey(const KeyPath &key, const KeyContent &content, bool withSubKeys) {
    std::string text = Printable(KeyPathText(key)) + "\n";
    for (const RegValue &value : content.values) {
        text += ValueLine(value);
    }
    text += "\n";
    for (const std::string &subKey : content.subKeys) {
        if (withSubKeys) text += Printable(KeyPathText(Below(key, subKey))) + "\n";
    }
    Print(text);
}

bool WantsOneValue(const Options &options) { return !options.valueName.empty() || options.unnamed; }

// What is asked for of a key that a walk has come to; false when it has nothing of it.
bool KeepWhatIsAskedFor(const Options &options, KeyContent *content) {
    if (!WantsOneValue(options)) return true;
    std::erase_if(content->values, [&](const RegValue &value) {
        return _ktl_strcasecmp(value.name.c_str(), options.valueName.c_str()) != 0;
    });
    return !content->values.empty();
}

void ShowKey(const Options &options, const KeyPath &key, const KeyContent &content, Json *keys) {
    if (options.json) {
        keys->push_back(KeyJson(key, content));
    } else {
        PrintKey(key, content, !options.recursive);
    }
}

void QueryBelow(const Options &options, Json *keys) {
    bool isFound = false;
    ForEachKey(KeyOf(options), [&](const KeyPath &key, KeyContent &content) {
        if (!KeepWhatIsAskedFor(options, &content)) return;
        isFound = true;
        ShowKey(options, key, content, keys);
    });
    if (!isFound) {
        Check(ERROR_FILE_NOT_FOUND, fmt::format("{} and below, value \"{}\"", options.key, options.valueName));
    }
}

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

} // namespace

void Query(const Options &options) {
    Json keys = Json::array();
    const KeyPath key = KeyOf(options);
    if (options.recursive) {
        QueryBelow(options, &keys);
    } else if (WantsOneValue(options)) {
        ShowKey(options, key, {{ReadValue(key, options.valueName)}, {}, {}}, &keys);
    } else {
        ShowKey(options, key, ReadKey(key), &keys);
    }
    if (options.json) PrintJson({{"schema", "tvreg.query/1"}, {"keys", keys}});
}

void List(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (!options.recursive) {
        for (const std::string &subKey : ReadKey(key).subKeys) {
            Print(Printable(subKey) + "\n");
        }
        return;
    }
    for (const RegKey &below : ReadKeys(key)) {
        if (below.key.path.size() > key.path.size()) {
            Print(Printable(below.key.path.substr(key.path.empty() ? 0 : key.path.size() + 1)) + "\n");
        }
    }
}

void Get(const Options &options) {
    const RegValue value = ReadValue(KeyOf(options), options.valueName);
    if (options.json) {
        PrintJson(ValueJson(value));
    } else {
        Print(options.raw ? value.data : DataText(value) + "\n");
    }
}

void Export(const Options &options) {
    std::string text, culprit;
    const auto dialect = options.reg4 ? RegDialect::regedit4 : RegDialect::version5;
    if (!WriteRegText(ReadKeys(KeyOf(options)), dialect, &text, &culprit)) {
        throw Failure(EXIT_BAD_TEXT, fmt::format("{}: cannot stand in this kind of file{}", culprit,
                                                 options.reg4 ? "" : " because it is not UTF-8; try --reg4"));
    }
    if (options.file.value_or("-") == "-") return isatty(STDOUT_FILENO) == 1 ? PrintAtTerminal(text) : Print(text);
    WriteFile(*options.file, text);
}

void Version(const Options &options) {
    HKEY key = 0;
    DWORD major = 0, minor = 0, patch = 0;
    Check(RegOpenKeyExA(HKEY_LOCAL_MACHINE, nullptr, 0, KEY_ALL_ACCESS, &key), "registry daemon");
    Check(RegQueryVersionInfo(&major, &minor, &patch), "registry daemon");
    if (options.json) {
        PrintJson({{"schema", "tvreg.version/1"}, {"major", major}, {"minor", minor}, {"patch", patch}});
    } else {
        Print(fmt::format("registry daemon {}.{}.{}\n", major, minor, patch));
    }
}

// --- changing ------------------------------------------------------------------------------------------------------

void Add(const Options &options) {
    const auto type = ParseType(options.type);
    if (!type) throw Failure(EXIT_USAGE, fmt::format("{}: not a type of a value", options.type));
    RegKey key{KeyOf(options), false, {}, 0};
    if (!options.valueName.empty() || options.unnamed || !options.data.empty()) {
        std::vector<std::string> words = options.data;
        if (words.size() == 1 && words.front() == "-") words.front() = ReadFile("-");
        const auto data = ParseData(*type, words, options.separator);
        if (!data) {
            throw Failure(EXIT_USAGE,
                          fmt::format("\"{}\": not data of the type {}", fmt::join(words, "\" \""), TypeText(*type)));
        }
        RegValue value;
        value.name = options.valueName;
        value.type = *type;
        value.data = *data;
        key.values.push_back(std::move(value));
    }
    MustWriteKeys({key});
}

void Set(const Options &options) {
    Options add = options;
    add.unnamed = add.valueName.empty();
    Add(add);
}

void Delete(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (options.allValues) {
        for (const RegValue &value : ReadKey(key).values) {
            DeleteValue(key, value.name);
        }
    } else if (!options.valueName.empty() || options.unnamed) {
        DeleteValue(key, options.valueName);
    } else {
        DeleteKey(key);
    }
}

// Other than Delete, it leaves a key with subkeys alone unless told.
void Remove(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (options.goesValue) return DeleteValue(key, *options.goesValue);
    if (!options.recursive && !ReadKey(key).subKeys.empty()) Check(ERROR_KEY_HAS_CHILDREN, KeyPathText(key));
    DeleteKey(key);
}
