// SPDX-License-Identifier: MIT
// name_index: finds a name in an array without walking all of it.
//
// An index stands beside an array whose elements bear names: each place of the array that has been added hangs in the
// chain of its name's hash. The index knows hashes only; the array stays the truth, and who looks up compares there.
// Thread:  main thread only.
#pragma once

#include <cstdint>

// A place of the array in its chain.
struct NamePlace {
    std::uint32_t hash;
    std::int32_t next; // -1 at the end
    bool isUsed;
};

// Zeroed, an index is empty. Owns both arrays (malloc).
struct NameIndex {
    std::int32_t *heads;     // by hash modulo headCount: the first place of the chain, -1 when there is none
    std::uint32_t headCount; // a power of two, or 0
    NamePlace *places;
    std::int32_t placeCount; // places allocated
};

// Enters the name that the array bears at this place, instead of one entered for it before.
void AddName(NameIndex *index, std::int32_t place, const char *name);
// Forgets what was entered for this place, if anything was.
void RemoveName(NameIndex *index, std::int32_t place);

// The first place of the chain in which this name would hang, -1 when there is none.
[[nodiscard]] std::int32_t FirstCandidate(const NameIndex &index, const char *name);

// Returns the lowest of the places for which bearsName(place) holds, -1 when it holds for none.
template <typename Predicate>
[[nodiscard]] std::int32_t FindName(const NameIndex &index, const char *name, Predicate bearsName) {
    std::int32_t lowest = -1;
    for (std::int32_t place = FirstCandidate(index, name); place >= 0; place = index.places[place].next) {
        if ((lowest < 0 || place < lowest) && bearsName(place)) lowest = place;
    }
    return lowest;
}
