// SPDX-License-Identifier: MIT
// name_table: finds entries by their names (util/names.h) in a table that lies in one piece of memory.
//
// An import looks for each new name once in vain, and the table grows under it. Hashes stand beside the pointers, so
// that a look touches one place of the memory, and growing none but the table itself. Open addressing with linear
// probing, at most three quarters full; what is removed leaves no mark, for what stands behind it moves up.
// Entries are borrowed, and keep their names while they are in it. Thread: the only one.
#pragma once

#include "util/names.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

template <typename Entry>
struct NameTable {
    struct Slot {
        Entry *entry = nullptr; // null: free
        std::uint32_t hash = 0;
    };
    std::vector<Slot> slots{}; // none, or a power of two
    std::size_t count = 0;
};

// Returns null when no entry has the name.
template <typename Entry>
Entry *FindName(const NameTable<Entry> &table, std::string_view name);

// Adds an entry. False, with the table as it was, when another has its name.
template <typename Entry>
bool AddName(NameTable<Entry> &table, Entry &entry);

// Takes an entry out. Nothing when it is not in the table, though another of its name may be.
template <typename Entry>
void RemoveName(NameTable<Entry> &table, const Entry &entry);

// --- implementation ---

inline std::uint32_t SlotHash(std::string_view name) { return static_cast<std::uint32_t>(HashOfName(name)); }

// Where the name is, or the free slot where it would be. There is always a free one.
template <typename Entry>
std::size_t SlotOf(const NameTable<Entry> &table, std::uint32_t hash, std::string_view name) {
    const std::size_t mask = table.slots.size() - 1;
    std::size_t at = hash & mask;
    while (table.slots[at].entry != nullptr &&
           (table.slots[at].hash != hash || !AreNamesEqual(table.slots[at].entry->name, name))) {
        at = (at + 1) & mask;
    }
    return at;
}

template <typename Entry>
Entry *FindName(const NameTable<Entry> &table, std::string_view name) {
    return table.count != 0 ? table.slots[SlotOf(table, SlotHash(name), name)].entry : nullptr;
}

template <typename Entry>
void GrowTable(NameTable<Entry> &table) {
    constexpr std::size_t firstSlots = 16;
    const auto before = std::exchange(table.slots, {});
    table.slots.resize(before.empty() ? firstSlots : 2 * before.size());
    const std::size_t mask = table.slots.size() - 1;
    for (const auto &slot : before) {
        if (slot.entry == nullptr) continue;
        std::size_t at = slot.hash & mask;
        while (table.slots[at].entry != nullptr) {
            at = (at + 1) & mask;
        }
        table.slots[at] = slot;
    }
}

template <typename Entry>
bool AddName(NameTable<Entry> &table, Entry &entry) {
    if (4 * (table.count + 1) > 3 * table.slots.size()) GrowTable(table);
    const std::uint32_t hash = SlotHash(entry.name);
    auto &slot = table.slots[SlotOf(table, hash, entry.name)];
    if (slot.entry != nullptr) return false;
    slot = {&entry, hash};
    ++table.count;
    return true;
}

template <typename Entry>
void RemoveName(NameTable<Entry> &table, const Entry &entry) {
    if (table.count == 0) return;
    const std::size_t mask = table.slots.size() - 1;
    std::size_t gap = SlotOf(table, SlotHash(entry.name), entry.name);
    if (table.slots[gap].entry != &entry) return;
    for (std::size_t at = (gap + 1) & mask; table.slots[at].entry != nullptr; at = (at + 1) & mask) {
        const std::size_t home = table.slots[at].hash & mask;
        const bool mayMove = ((at - home) & mask) >= ((at - gap) & mask); // its search comes by the gap
        if (!mayMove) continue;
        table.slots[gap] = table.slots[at];
        gap = at;
    }
    table.slots[gap] = {};
    --table.count;
}
