// SPDX-License-Identifier: MIT
// name_index: chains of places by the hash of their names.
#include "servd/servd_svc_proc/name_index.h"

#include "servd/checked_memory.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr std::int32_t fewestPlaces = 64;

std::uint32_t HashOf(const char *name) { // FNV-1a
    std::uint32_t hash = 2166136261;
    for (; *name != '\0'; name++) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619;
    }
    return hash;
}

std::int32_t *HeadOf(const NameIndex &index, std::uint32_t hash) { return &index.heads[hash & (index.headCount - 1)]; }

void Link(NameIndex *index, std::int32_t place) {
    std::int32_t *head = HeadOf(*index, index->places[place].hash);
    index->places[place].next = *head;
    *head = place;
}

// Makes room for this place and gives every place a chain of its own, on average.
void Grow(NameIndex *index, std::int32_t place) {
    std::int32_t count = std::max(index->placeCount, fewestPlaces);
    while (count <= place) {
        count *= 2;
    }
    index->places = static_cast<NamePlace *>(
        CheckedRealloc(index->places, static_cast<std::size_t>(count) * sizeof *index->places));
    std::fill(index->places + index->placeCount, index->places + count,
              NamePlace{.hash = 0, .next = -1, .isUsed = false});
    index->placeCount = count;

    std::free(index->heads);
    index->headCount = static_cast<std::uint32_t>(count);
    index->heads = static_cast<std::int32_t *>(CheckedCalloc(index->headCount, sizeof *index->heads));
    std::fill(index->heads, index->heads + count, -1);
    for (std::int32_t used = 0; used < count; used++) {
        if (index->places[used].isUsed) Link(index, used);
    }
}

} // namespace

void AddName(NameIndex *index, std::int32_t place, const char *name) {
    if (place >= index->placeCount) Grow(index, place);
    RemoveName(index, place);
    index->places[place] = {.hash = HashOf(name), .next = -1, .isUsed = true};
    Link(index, place);
}

void RemoveName(NameIndex *index, std::int32_t place) {
    if (place >= index->placeCount || !index->places[place].isUsed) return;
    std::int32_t *link = HeadOf(*index, index->places[place].hash);
    while (*link != place) {
        link = &index->places[*link].next;
    }
    *link = index->places[place].next;
    index->places[place].isUsed = false;
}

std::int32_t FirstCandidate(const NameIndex &index, const char *name) {
    return index.headCount == 0 ? -1 : *HeadOf(index, HashOf(name));
}
