// SPDX-License-Identifier: MIT
// compare: two keys in the manner of the Win32 tool, and two of anything (keys, files) as a diff.
#include "tvreg/compare.h"

#include "tvreg/commands.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int exitDifferent = 2; // of compare; of diff it is 1, and trouble is 2

std::string ValueText(const RegValue &value) {
    return fmt::format("{}  {}  {}", NameText(value), TypeText(value.type), DataText(value));
}

const char *KindOf(const Difference &difference) {
    const bool isBefore = IsOfKey(difference) ? difference.isBefore : difference.before.has_value();
    const bool isAfter = IsOfKey(difference) ? difference.isAfter : difference.after.has_value();
    if (isBefore && isAfter) return IsSame(difference) ? "same" : "changed";
    return isBefore ? "removed" : "added";
}

// --- compare -------------------------------------------------------------------------------------------------------

void PrintCompared(const KeyPath &first, const KeyPath &second, const Difference &difference) {
    const std::string before = Printable(PathText(first, difference.path)),
                      after = Printable(PathText(second, difference.path));
    if (IsOfKey(difference)) {
        if (IsSame(difference)) return;
        return Print(difference.isBefore ? fmt::format("< Key:  {}\n", before) : fmt::format("> Key:  {}\n", after));
    }
    if (IsSame(difference)) return Print(fmt::format("= Value:  {}  {}\n", before, ValueText(*difference.before)));
    if (difference.before) Print(fmt::format("< Value:  {}  {}\n", before, ValueText(*difference.before)));
    if (difference.after) Print(fmt::format("> Value:  {}  {}\n", after, ValueText(*difference.after)));
}

// What is compared of a key: all of it and below, its values, or one of them.
KeyTree CompareSide(const Options &options, const KeyPath &key) {
    if (options.recursive && !WantsOneValue(options)) return {key, ReadKeys(key)};
    RegKey only{key, false, {}, 0};
    only.values = WantsOneValue(options) ? std::vector{ReadValue(key, options.valueName)} : ReadKey(key).values;
    return {key, {only}};
}

bool IsShown(const Options &options, const Difference &difference) {
    if (options.showNothing) return false;
    if (options.showAll) return true;
    return IsSame(difference) == options.showSame;
}

// --- diff ----------------------------------------------------------------------------------------------------------

bool IsFile(const std::string &text) {
    KeyPath key;
    return text == "-" || access(text.c_str(), F_OK) == 0 || !ParseKeyOfHost(text, &key);
}

// Both sides are keys and are compared from there on, or whole paths count.
std::vector<RegKey> DiffSide(const std::string &text) {
    return IsFile(text) ? KeysOfFile(text) : ReadKeys(KeyNamed(text));
}

KeyPath OnHost(KeyPath key, const std::string &host) {
    if (!host.empty()) key.host = host;
    return key;
}

void WithoutHost(std::vector<RegKey> &keys) {
    for (RegKey &key : keys) {
        key.key.host.clear();
    }
}

} // namespace

std::vector<RegKey> KeysOfFile(const std::string &file) {
    std::vector<RegKey> keys;
    for (const RegTextError &error : ReadRegText(ReadFile(file), &keys)) {
        throw Failure(EXIT_BAD_TEXT, fmt::format("{}:{}: {}", file, error.line, error.text));
    }
    return StateOf(keys);
}

void PrintDifferences(const std::vector<Difference> &differences, const KeyPath &top) {
    const std::string *path = nullptr;
    for (const Difference &difference : differences) {
        const std::string name = Printable(PathText(top, difference.path));
        if (IsOfKey(difference)) {
            Print(fmt::format("{} [{}]\n", difference.isBefore ? '-' : '+', name));
        } else {
            if (path == nullptr || *path != difference.path) Print(fmt::format("  [{}]\n", name));
            if (difference.before) Print(fmt::format("-     {}\n", ValueText(*difference.before)));
            if (difference.after) Print(fmt::format("+     {}\n", ValueText(*difference.after)));
        }
        path = &difference.path;
    }
}

Json DifferenceJson(const Difference &difference, const KeyPath &top) {
    Json object = {{"kind", KindOf(difference)}};
    SetText(object, "key", PathText(top, difference.path));
    if (difference.before) object["before"] = ValueJson(*difference.before);
    if (difference.after) object["after"] = ValueJson(*difference.after);
    return object;
}

Json DifferencesJson(const char *schema, const std::vector<Difference> &differences, const KeyPath &top) {
    Json object = {{"schema", schema}, {"differences", Json::array()}};
    for (const Difference &difference : differences) {
        object["differences"].push_back(DifferenceJson(difference, top));
    }
    return object;
}

int Compare(const Options &options) {
    const KeyPath first = KeyOf(options), second = KeyNamed(options.otherKey);
    const std::vector<Difference> all = CompareTrees(CompareSide(options, first), CompareSide(options, second), true);
    const bool isSame = std::all_of(all.begin(), all.end(), IsSame);
    std::vector<Difference> shown = all;
    std::erase_if(shown, [&](const Difference &difference) {
        return !IsShown(options, difference) || (IsOfKey(difference) && IsSame(difference));
    });
    if (options.json) {
        Json object = DifferencesJson("tvreg.compare/1", shown, first);
        object["identical"] = isSame;
        PrintJson(object);
        return isSame ? 0 : exitDifferent;
    }
    for (const Difference &difference : shown) {
        PrintCompared(first, second, difference);
    }
    if (!options.showNothing) Print(fmt::format("Result Compared: {}\n", isSame ? "Identical" : "Different"));
    return isSame ? 0 : exitDifferent;
}

int Diff(const Options &options) {
    const bool areKeys = !IsFile(options.key) && (options.otherKey.empty() || !IsFile(options.otherKey));
    KeyTree before, after;
    if (areKeys) {
        before.top = KeyOf(options);
        after.top = OnHost(options.otherKey.empty() ? before.top : KeyNamed(options.otherKey), options.otherHost);
        before.keys = ReadKeys(before.top);
        after.keys = ReadKeys(after.top);
    } else {
        if (options.otherKey.empty()) throw Failure(EXIT_USAGE, "diff: a second key or file is missing");
        before.keys = DiffSide(options.key);
        after.keys = DiffSide(options.otherKey);
        WithoutHost(before.keys);
        WithoutHost(after.keys);
    }
    const std::vector<Difference> differences = CompareTrees(before, after);
    if (options.json) {
        PrintJson(DifferencesJson("tvreg.diff/1", differences, before.top));
    } else {
        PrintDifferences(differences, before.top);
    }
    return differences.empty() ? 0 : 1;
}
