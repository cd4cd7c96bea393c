// SPDX-License-Identifier: MIT
// differences: what tells two trees of keys from each other.
//
// Keys are the same by their paths below the two tops, values by their names, both without regard to the case of
// letters; the order of either does not matter.
#pragma once

#include "tvreg/reg_text.h"

#include <optional>

// Keys and all that is below them, as one state: each key once, none deleted.
struct KeyTree {
    KeyPath top; // its path is cut off those of the keys; without a root the keys are of several: all of it counts
    std::vector<RegKey> keys;
};

struct Difference {
    std::string path;                       // of the key, below the top
    std::optional<RegValue> before, after;  // none: no such value there; both none: the key itself
    bool isBefore = false, isAfter = false; // the key itself: on which side it is
};

inline bool IsOfKey(const Difference &difference) { return !difference.before && !difference.after; }
inline bool IsSame(const Difference &difference) {
    return IsOfKey(difference) ? difference.isBefore == difference.isAfter : difference.before == difference.after;
}

// What a list of keys to make and to delete, as it stands in a file, comes to in an empty registry.
std::vector<RegKey> StateOf(const std::vector<RegKey> &keys);

// All keys and values of both, in the order of the first and then of the second; those that are the same on both sides
// only when asked for.
std::vector<Difference> CompareTrees(const KeyTree &before, const KeyTree &after, bool withSame = false);

// What has to be written to a tree to make it the other one: keys below `top`, what goes first.
std::vector<RegKey> ChangesOf(const std::vector<Difference> &differences, const KeyPath &top);

// The path of a difference below a top, for people.
std::string PathText(const KeyPath &top, const std::string &path);
