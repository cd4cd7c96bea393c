// SPDX-License-Identifier: MIT
// graveyard: how deleted keys and their rows are taken apart, piece by piece.
#include "tvregd/graveyard.h"

#include <algorithm>
#include <exception>

namespace {

constexpr std::size_t fewRows = 256;                    // erased with the key itself
constexpr std::size_t leastRows = 100, mostRows = 2000; // erased at a time
constexpr std::uint64_t pieceTime = 50'000;             // 5 ms: what erasing so many should take, without the commit
constexpr std::uint64_t patience = 500'000;             // 50 ms
constexpr std::uint64_t rest = 10'000'000;              // after a failure: a second, in steps of 100 ns

// The rows of a key, its values and all below it, counted up to the limit. This recursion and the others end at
// maxKeyDepth.
std::size_t CountRows(const Key &key, std::size_t limit) {
    std::size_t rows = 1 + key.values.inOrder.size();
    for (const auto &subKey : key.subKeys.inOrder) {
        if (rows > limit) break;
        rows += CountRows(*subKey, limit - rows);
    }
    return rows;
}

void EraseAll(Store &store, const Key &key) {
    for (const auto &subKey : key.subKeys.inOrder) {
        EraseAll(store, *subKey);
    }
    for (const auto &value : key.values.inOrder) {
        EraseValue(store, *value);
    }
    EraseKey(store, key);
}

// What a piece takes off one key: so many of its values, from the last one on, and then the key itself or not.
struct Step {
    Key *key;
    std::size_t values;
    bool isWhole;
    bool hasRows;
};

// Adds steps for the last keys and values below a key and for it, until there are enough rows. Returns whether all of
// it is in them.
bool AddSteps(Key &key, bool hasRows, std::size_t limit, std::size_t *rows, std::vector<Step> *steps) {
    hasRows = hasRows && !key.isErased;
    for (auto subKey = key.subKeys.inOrder.rbegin(); subKey != key.subKeys.inOrder.rend(); ++subKey) {
        if (!AddSteps(**subKey, hasRows, limit, rows, steps)) return false;
    }
    if (*rows >= limit) return false;
    const std::size_t values = std::min(key.values.inOrder.size(), limit - *rows);
    *rows += values + 1;
    steps->push_back({&key, values, values == key.values.inOrder.size(), hasRows});
    return steps->back().isWhole;
}

// How many rows to erase next, after so many have taken so long: twice as many at most, as the clock may be set.
std::size_t NextPiece(std::size_t rows, std::uint64_t took) {
    const auto wanted = static_cast<std::uint64_t>(rows) * pieceTime / std::max(took, pieceTime / 2);
    return std::clamp(static_cast<std::size_t>(wanted), leastRows, mostRows);
}

void EraseRows(Registry &registry, const Step &step) {
    const auto &values = step.key->values.inOrder;
    for (auto value = values.end() - static_cast<std::ptrdiff_t>(step.values); value != values.end(); ++value) {
        EraseValue(*registry.store, **value);
    }
    if (!step.isWhole) return;
    EraseKey(*registry.store, *step.key);
    if (step.key->parent == registry.tree.graveyard.get()) StoreForgotten(*registry.store, *step.key);
}

void Release(Registry &registry, const Step &step) {
    for (std::size_t i = 0; i < step.values; ++i) {
        DropLastValue(*step.key);
    }
    if (step.isWhole) DropLastKey(registry.tree, *step.key->parent);
}

} // namespace

bool StoreDeleted(Store &store, const Key &key) {
    const bool areFew = CountRows(key, fewRows) <= fewRows;
    if (areFew) {
        EraseAll(store, key);
    } else {
        StoreBuried(store, key);
    }
    return areFew;
}

bool EraseSome(Registry &registry) {
    std::vector<std::unique_ptr<Key>> &buried = registry.tree.graveyard->subKeys.inOrder;
    if (buried.empty() || registry.group.isOpen) return false;
    const std::uint64_t now = FileTimeNow();
    if (now - registry.eraseFailed < rest) return false;
    std::vector<Step> steps;
    std::size_t rows = 0;
    for (auto key = buried.rbegin();
         key != buried.rend() && AddSteps(**key, true, registry.pieceRows, &rows, &steps);) {
        ++key;
    }
    try {
        if (std::any_of(steps.begin(), steps.end(), [](const Step &step) { return step.hasRows; })) {
            Begin(*registry.store);
            for (const Step &step : steps) {
                if (step.hasRows) EraseRows(registry, step);
            }
            registry.pieceRows = NextPiece(rows, FileTimeNow() - now);
            Commit(*registry.store);
        }
    } catch (const std::exception &failure) {
        TellTrouble(registry.trouble, "not erased", failure, now);
        RollBack(*registry.store);
        registry.eraseFailed = now;
        return false;
    }
    for (const Step &step : steps) {
        Release(registry, step);
    }
    registry.erased = FileTimeNow();
    return !buried.empty();
}

bool IsAnythingBuried(const Registry &registry) { return !registry.tree.graveyard->subKeys.inOrder.empty(); }

bool IsEraseDue(const Registry &registry) {
    return IsAnythingBuried(registry) && FileTimeNow() - registry.erased >= patience;
}
