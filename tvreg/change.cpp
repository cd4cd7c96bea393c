// SPDX-License-Identifier: MIT
// change: keys and values set, deleted and copied.
#include "tvreg/commands.h"
#include "tvreg/differences.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "tvreg/registry_writing.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

// What was done, for programs; people are told nothing.
int Done(const Options &options, const char *what, const KeyPath &key, std::size_t keys, std::size_t values) {
    if (!options.json) return 0;
    Json object = {{"schema", "tvreg.done/1"}, {"done", what}};
    SetText(object, "key", KeyPathText(key));
    object["keys"] = keys;
    object["values"] = values;
    PrintJson(object);
    return 0;
}

} // namespace

int Add(const Options &options) {
    const std::uint32_t type = TypeNamed(options.type);
    RegKey key{KeyOf(options), false, {}, 0};
    if (WantsOneValue(options) || !options.data.empty()) {
        std::vector<std::string> words = options.data;
        if (words.size() == 1 && words.front() == "-") words.front() = ReadFile("-");
        const auto data = ParseData(type, words, options.separator);
        if (!data) {
            throw Failure(EXIT_USAGE,
                          fmt::format("\"{}\": not data of the type {}", fmt::join(words, "\" \""), TypeText(type)));
        }
        RegValue value;
        value.name = options.valueName;
        value.type = type;
        value.data = *data;
        key.values.push_back(std::move(value));
    }
    MustWriteKeys({key});
    return Done(options, "written", key.key, 1, key.values.size());
}

int Set(const Options &options) {
    Options add = options;
    add.unnamed = add.valueName.empty();
    return Add(add);
}

int Delete(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (!options.allValues && !WantsOneValue(options)) {
        DeleteKey(key);
        return Done(options, "deleted", key, 1, 0);
    }
    std::size_t values = 0;
    if (options.allValues) {
        for (const RegValue &value : ReadKey(key).values) {
            DeleteValue(key, value.name);
            ++values;
        }
    } else {
        DeleteValue(key, options.valueName);
        ++values;
    }
    return Done(options, "deleted", key, 0, values);
}

// Other than Delete, it leaves a key with subkeys alone unless told.
int Remove(const Options &options) {
    const KeyPath key = KeyOf(options);
    if (options.goesValue) {
        DeleteValue(key, *options.goesValue);
        return Done(options, "deleted", key, 0, 1);
    }
    if (!options.recursive && !ReadKey(key).subKeys.empty()) Check(ERROR_KEY_HAS_CHILDREN, KeyPathText(key));
    DeleteKey(key);
    return Done(options, "deleted", key, 1, 0);
}

// Nothing is asked: values that would be lost are told, and unless they may be nothing is written.
int Copy(const Options &options) {
    const KeyPath from = KeyOf(options), to = KeyNamed(options.otherKey);
    std::vector<RegKey> source;
    if (options.recursive) {
        source = ReadKeys(from);
    } else {
        source.push_back({from, false, ReadKey(from).values, 0});
    }
    std::vector<RegKey> copy = source;
    std::size_t values = 0;
    for (RegKey &key : copy) {
        const std::string below =
            key.key.path.substr(std::min(key.key.path.size(), from.path.empty() ? 0 : from.path.size() + 1));
        key.key = below.empty() ? to : Below(to, below);
        values += key.values.size();
    }
    if (!options.force && KeyExists(to)) {
        std::vector<RegKey> present;
        if (options.recursive) {
            present = ReadKeys(to);
        } else {
            present.push_back({to, false, ReadKey(to).values, 0}); // what hangs below is nobody's concern
        }
        for (const Difference &difference : CompareTrees({to, present}, {to, copy})) {
            if (!difference.before || !difference.after) continue;
            throw Failure(EXIT_FAILED, fmt::format("{}, value \"{}\": is there with other data; -f replaces it",
                                                   PathText(to, difference.path), difference.before->name));
        }
    }
    MustWriteKeys(copy);
    return Done(options, "copied", to, copy.size(), values);
}
