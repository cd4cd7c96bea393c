// SPDX-License-Identifier: MIT
// database: the array of service records, its growth and its search by name.
//
// Owns:    svcdb, svcnames and the names in them (malloc), and the other state that the whole module shares.
// Thread:  main thread only; nothing here is locked.
// Deliberate: the loader fills records from index 1, but the search for a free record begins at 0, so that the first
// service created after start-up takes record 0.
#include "servd/servd_svc_proc/database.h"

#include "servd/checked_memory.h"
#include "servd/limits.h"
#include "servd/servd_svc_proc/name_index.h"

#include <algorithm>
#include <cstring>
#include <string_view>

ServiceDatabaseEntry *svcdb;
ListedNames *svcnames;
std::int32_t svcdbsize;
ServiceDatabaseLock svcdblock;

static constexpr std::int32_t growthRecords = 50;

// Over the names in svcdb; SetServiceName and SetServiceDisplayName keep them.
static NameIndex nameIndex;
static NameIndex displayNameIndex;

// No record below it is free; SetServiceName sees to that.
static std::int32_t firstFree;

// Gives an array of so many elements as there are records those for new ones, zeroed.
template <typename Element>
static void Grow(Element **array) {
    const auto records = static_cast<std::size_t>(svcdbsize);
    *array = static_cast<Element *>(CheckedRealloc(*array, (records + growthRecords) * sizeof(Element)));
    std::memset(*array + records, 0, growthRecords * sizeof(Element));
}

void ResizeServiceDatabase() {
    Grow(&svcdb);
    Grow(&svcnames);
    svcdbsize += growthRecords;
}

std::int32_t GetNextServiceDatabaseEntry() {
    for (; firstFree < svcdbsize; firstFree++) {
        if (svcdb[firstFree].name == nullptr) return firstFree;
    }
    const std::int32_t firstNew = svcdbsize;
    ResizeServiceDatabase();
    return firstNew;
}

static void KeepListedNames(std::int32_t index) {
    ListedNames &kept = svcnames[index];
    if (svcdb[index].name == nullptr) {
        std::free(kept.words);
        kept = {};
        return;
    }
    const std::string_view name = svcdb[index].name;
    const char *text = svcdb[index].displayName;
    const std::string_view displayName = text != nullptr ? text : std::string_view();
    const std::size_t words = ListedNameWords(name.size(), displayName.size());
    kept.words = static_cast<std::uint32_t *>(CheckedRealloc(kept.words, words * BYTES_PER_XDR_UNIT));
    (void)PutListedNames(kept.words, name, displayName);
    kept.wordCount = static_cast<std::uint32_t>(words);
    kept.recordBytes = static_cast<std::int32_t>(name.size() + 1 + displayName.size() + 1) + fixedRecordBytes;
}

static void SetName(char *ServiceDatabaseEntry::*kind, NameIndex *names, std::int32_t index, const char *name) {
    char *&place = svcdb[index].*kind;
    std::free(place);
    place = CheckedCopy(name);
    if (name != nullptr) {
        AddName(names, index, name);
    } else {
        RemoveName(names, index);
    }
    KeepListedNames(index);
}

void SetServiceName(std::int32_t index, const char *name) {
    SetName(&ServiceDatabaseEntry::name, &nameIndex, index, name);
    if (name == nullptr) firstFree = std::min(firstFree, index);
}

void SetServiceDisplayName(std::int32_t index, const char *displayName) {
    SetName(&ServiceDatabaseEntry::displayName, &displayNameIndex, index, displayName);
}

// Deliberate: letter case counts, although Win32 service names have none.
std::int32_t GetServiceIndexFromName(const char *name) {
    return FindName(nameIndex, name, [name](std::int32_t index) {
        return IsServiceHandle(index) && std::strcmp(svcdb[index].name, name) == 0;
    });
}

static bool BearsDisplayName(std::int32_t index, const char *displayName) {
    const char *present = index < svcdbsize ? svcdb[index].displayName : nullptr;
    return present != nullptr && std::strcmp(present, displayName) == 0;
}

std::int32_t GetServiceIndexFromDisplayName(const char *displayName) {
    return FindName(displayNameIndex, displayName, [displayName](std::int32_t index) {
        return IsServiceHandle(index) && BearsDisplayName(index, displayName);
    });
}

bool IsDisplayNameOfAnother(const char *displayName, std::int32_t index) {
    return FindName(displayNameIndex, displayName, [displayName, index](std::int32_t other) {
               return other != index && BearsDisplayName(other, displayName);
           }) >= 0;
}

void ClearVisitingFlags() {
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        svcdb[index].visited = svcdb[index].visiting = 0;
    }
}

bool IsServiceHandle(std::int32_t handle) { return handle >= 0 && handle < svcdbsize && svcdb[handle].name != nullptr; }
