// SPDX-License-Identifier: MIT
// registry_reading: keys and trees of keys, each as it was at one moment.
//
// Other programs may change a key while it is read, value by value and by index: what is deleted meanwhile moves the
// rest forward, past the index asked for next. So a key's state (its counts and the time of its last write) is asked
// for before and after, and the key is read again when it has changed. A tree is walked until a walk meets nothing that
// has changed since the one before: all keys then stood as they were read, at the moment between the two walks.
// A daemon whose times are zero is believed only when two readings agree.
#pragma once

#include "tvreg/registry_access.h"

#include <functional>
#include <map>

struct KeyState {
    std::uint32_t subKeys = 0, longestSubKey = 0, values = 0, longestName = 0, longestData = 0;
    std::uint64_t written = 0; // 100 ns units; 0 where the daemon tells none

    bool operator==(const KeyState &other) const = default;
};

struct KeyContent {
    std::vector<RegValue> values; // in the registry's order
    std::vector<std::string> subKeys;
    KeyState state = {};
};

// What the last walk over a tree has met, by the paths of the keys. Empty before the first one.
using KnownKeys = std::map<std::string, KeyContent>;

// Throw a Failure of EXIT_FAILED for a key that changes faster than it can be read and for answers that do not come to
// an end.
KeyContent ReadKey(const KeyPath &key);

// A key and everything below it, each key before its subkeys, in the registry's order. Each is as it was at one moment,
// but not all at the same. Keys that go meanwhile are passed over.
void ForEachKey(const KeyPath &key, const std::function<void(const KeyPath &, KeyContent &)> &use);

// The same, all at one moment.
//   known  what an earlier call has met; unchanged keys are not read again
std::vector<RegKey> ReadKeys(const KeyPath &key, KnownKeys *known);
std::vector<RegKey> ReadKeys(const KeyPath &key);
