// SPDX-License-Identifier: MIT
// differences: both sides by their folded paths.
#include "tvreg/differences.h"

#include "util/names.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace {

// Both folded.
bool IsBelowOrSame(const std::u32string &path, const std::u32string &top) {
    return path == top || (path.size() > top.size() && path.starts_with(top) && path[top.size()] == U'\\') ||
           top.empty();
}

std::string BelowTop(const KeyTree &tree, const RegKey &key) {
    if (tree.top.root == 0) return KeyPathText(key.key);
    const std::size_t cut = tree.top.path.empty() ? 0 : tree.top.path.size() + 1;
    return key.key.path.substr(std::min(cut, key.key.path.size()));
}

using ByName = std::unordered_map<std::u32string, const RegValue *>;

ByName IndexOfValues(const RegKey *key) {
    ByName index;
    if (key == nullptr) return index;
    for (const RegValue &value : key->values) {
        index.emplace(FoldedName(value.name), &value);
    }
    return index;
}

struct Comparison {
    bool withSame;
    std::vector<Difference> differences = {};
};

void Note(Comparison &comparison, Difference difference) {
    if (comparison.withSame || !IsSame(difference)) comparison.differences.push_back(std::move(difference));
}

// One key, which is on one side at least.
void CompareKeys(Comparison &comparison, const std::string &path, const RegKey *before, const RegKey *after) {
    Note(comparison,
         {.path = path, .before = {}, .after = {}, .isBefore = before != nullptr, .isAfter = after != nullptr});
    const ByName beforeIndex = IndexOfValues(before), afterIndex = IndexOfValues(after);
    for (const RegValue &value : before != nullptr ? before->values : std::vector<RegValue>()) {
        Difference difference = {.path = path, .before = value, .after = {}};
        if (const auto other = afterIndex.find(FoldedName(value.name)); other != afterIndex.end()) {
            difference.after = *other->second;
            difference.after->name = value.name; // the case of letters is no difference
        }
        Note(comparison, std::move(difference));
    }
    for (const RegValue &value : after != nullptr ? after->values : std::vector<RegValue>()) {
        if (!beforeIndex.contains(FoldedName(value.name))) {
            Note(comparison, {.path = path, .before = {}, .after = value});
        }
    }
}

using ByPath = std::map<std::u32string, const RegKey *>;

ByPath Index(const KeyTree &tree) {
    ByPath index;
    for (const RegKey &key : tree.keys) {
        index.emplace(FoldedName(BelowTop(tree, key)), &key);
    }
    return index;
}

const RegKey *At(const ByPath &index, const std::string &path) {
    const auto found = index.find(FoldedName(path));
    return found != index.end() ? found->second : nullptr;
}

KeyPath KeyAt(const KeyPath &top, const std::string &path) { return path.empty() ? top : Below(top, path); }

} // namespace

std::vector<RegKey> StateOf(const std::vector<RegKey> &keys) {
    std::vector<RegKey> state;
    std::map<std::u32string, std::size_t> places; // in state, of keys by their folded paths
    std::map<std::pair<std::size_t, std::u32string>, std::size_t> valuePlaces;
    for (const RegKey &key : keys) {
        const std::u32string path = FoldedName(KeyPathText(key.key));
        if (key.isDeleted) {
            for (auto place = places.begin(); place != places.end();) {
                const bool goes = IsBelowOrSame(place->first, path);
                if (goes) state[place->second].isDeleted = true;
                place = goes ? places.erase(place) : std::next(place);
            }
            continue;
        }
        const auto [place, isNew] = places.emplace(path, state.size());
        if (isNew) state.push_back({.key = key.key, .isDeleted = false, .values = {}, .line = key.line});
        std::vector<RegValue> &values = state[place->second].values;
        for (const RegValue &value : key.values) {
            const auto [at, isNewValue] =
                valuePlaces.emplace(std::pair(place->second, FoldedName(value.name)), values.size());
            if (isNewValue) {
                values.push_back(value);
            } else {
                values[at->second] = value;
            }
        }
    }
    std::erase_if(state, [](const RegKey &key) { return key.isDeleted; });
    for (RegKey &key : state) {
        std::erase_if(key.values, [](const RegValue &value) { return value.isDeleted; });
    }
    return state;
}

std::vector<Difference> CompareTrees(const KeyTree &before, const KeyTree &after, bool withSame) {
    const ByPath beforeIndex = Index(before), afterIndex = Index(after);
    Comparison comparison = {.withSame = withSame};
    for (const RegKey &key : before.keys) {
        const std::string path = BelowTop(before, key);
        CompareKeys(comparison, path, &key, At(afterIndex, path));
    }
    for (const RegKey &key : after.keys) {
        const std::string path = BelowTop(after, key);
        if (At(beforeIndex, path) == nullptr) CompareKeys(comparison, path, nullptr, &key);
    }
    return std::move(comparison.differences);
}

std::vector<RegKey> ChangesOf(const std::vector<Difference> &differences, const KeyPath &top) {
    std::vector<RegKey> deleted, changed;
    for (const Difference &difference : differences) {
        const KeyPath key = KeyAt(top, difference.path);
        const std::u32string path = FoldedName(key.path);
        const bool isGone = std::any_of(deleted.begin(), deleted.end(), [&](const RegKey &other) {
            return IsBelowOrSame(path, FoldedName(other.key.path));
        });
        if (isGone) continue; // with the key above it
        if (IsOfKey(difference) && !difference.isAfter) {
            deleted.push_back({.key = key, .isDeleted = true, .values = {}});
            continue;
        }
        if (changed.empty() || changed.back().key.path != key.path) {
            changed.push_back({.key = key, .isDeleted = false, .values = {}});
        }
        if (IsOfKey(difference)) continue;
        RegValue value = difference.after ? *difference.after : *difference.before;
        value.isDeleted = !difference.after;
        changed.back().values.push_back(std::move(value));
    }
    deleted.insert(deleted.end(), changed.begin(), changed.end());
    return deleted;
}

std::string PathText(const KeyPath &top, const std::string &path) {
    return top.root == 0 ? path : KeyPathText(KeyAt(top, path));
}
