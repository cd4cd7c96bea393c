// SPDX-License-Identifier: MIT
// groups: the load-order groups and the image-path list.
//
// Both are arrays of named entries, each heading a chain of svcdb indexes; the first null name ends the used entries.
// Groups of the order list come first, in its order; those that only services name follow as they are met.
// Owns:    both arrays, the entry names, the chain nodes (all malloc).
// Reads:   tags in svcdb; the registry keys ServiceGroupOrder and GroupOrderList.
// Thread:  main thread only; nothing here is locked.
// Deliberate: removal edits grouplist, whichever list was searched.
#include "servd/servd_svc_proc/servd_svc_proc.h"

#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/name_index.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr std::int32_t growthEntries = 20;

GroupMember *NewMember(std::int32_t serviceIndex, GroupMember *next) {
    auto *member = static_cast<GroupMember *>(CheckedCalloc(1, sizeof(GroupMember)));
    *member = {.serviceIndex = serviceIndex, .next = next};
    return member;
}

// The used entries stand in front.
std::int32_t FirstFreeEntry(const GroupListEntry *list, std::int32_t size) {
    const GroupListEntry *end =
        std::partition_point(list, list + size, [](const GroupListEntry &entry) { return entry.name != nullptr; });
    return static_cast<std::int32_t>(end - list);
}

// The index over the names of a list, which is known by its size; null for lists other than the two globals.
NameIndex *IndexOf(const std::int32_t *size) {
    static NameIndex groups;
    static NameIndex imagePaths;
    if (size == &grouplistsize) return &groups;
    return size == &imagepathlistsize ? &imagePaths : nullptr;
}

void FillEntry(GroupListEntry *list, const std::int32_t *size, std::int32_t place, const char *name,
               GroupMember *members) {
    list[place] = {.name = CheckedCopy(name), .members = members};
    if (NameIndex *names = IndexOf(size)) AddName(names, place, name);
}

void AppendOrderedGroup(std::int32_t *count, const char *name) {
    const std::int32_t index = (*count)++;
    if (index >= grouplistsize) ResizeGroupList(&grouplist, &grouplistsize);
    FillEntry(grouplist, &grouplistsize, index, name, nullptr);
}

std::uint32_t TagAt(const char *vector, DWORD offset) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(vector + offset);
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[3]) << 24;
}

// Unlinks the first member whose service carries the tag; null when there is none.
GroupMember *TakeMemberWithTag(GroupMember **members, std::uint32_t tag) {
    for (GroupMember **link = members; *link != nullptr; link = &(*link)->next) {
        GroupMember *member = *link;
        if (static_cast<std::uint32_t>(svcdb[member->serviceIndex].tag) != tag) continue;
        *link = member->next;
        return member;
    }
    return nullptr;
}

// Returns the members in the order of the tag vector, one for each tag that finds one, and then the rest as they stood.
GroupMember *SortedByTags(GroupMember *rest, const char *vector, DWORD bytes) {
    GroupMember *sorted = nullptr;
    GroupMember **end = &sorted;
    for (DWORD offset = tagBytes; offset + tagBytes <= bytes && rest != nullptr; offset += tagBytes) {
        GroupMember *member = TakeMemberWithTag(&rest, TagAt(vector, offset));
        if (member == nullptr) continue;
        *end = member;
        end = &member->next;
    }
    *end = rest;
    return sorted;
}

} // namespace

// The block itself grows by doubling: moved at every 20 entries, long lists would spend their time on it.
void ResizeGroupList(GroupListEntry **list, std::int32_t *size) {
    const auto entries = *list == nullptr ? std::size_t{0} : static_cast<std::size_t>(*size);
    const std::size_t room = std::bit_ceil(entries + growthEntries);
    if (*list == nullptr || room != std::bit_ceil(entries))
        *list = static_cast<GroupListEntry *>(CheckedRealloc(*list, room * sizeof **list));
    // The searches find the end by a null name.
    std::memset(*list + entries, 0, growthEntries * sizeof **list);
    *size = static_cast<std::int32_t>(entries) + growthEntries;
}

std::int32_t GetGroupIndexFromName(const GroupListEntry *list, const std::int32_t *size, const char *name) {
    const auto bearsName = [list, size, name](std::int32_t place) {
        return place < *size && list[place].name != nullptr && std::strcmp(list[place].name, name) == 0;
    };
    if (const NameIndex *names = IndexOf(size)) return FindName(*names, name, bearsName);
    for (std::int32_t place = 0; place < *size; place++)
        if (bearsName(place)) return place;
    return -1;
}

void AddServiceToGroupList(GroupListEntry **list, std::int32_t *size, const char *name, std::int32_t serviceIndex) {
    const std::int32_t found = GetGroupIndexFromName(*list, size, name);
    if (found >= 0) {
        GroupListEntry &entry = (*list)[found];
        entry.members = NewMember(serviceIndex, entry.members);
        return;
    }
    const std::int32_t added = FirstFreeEntry(*list, *size);
    if (added == *size) ResizeGroupList(list, size);
    FillEntry(*list, size, added, name, NewMember(serviceIndex, nullptr));
}

void RemoveServiceFromGroupList(GroupListEntry *list, const std::int32_t *size, const char *name,
                                std::int32_t serviceIndex) {
    const std::int32_t found = GetGroupIndexFromName(list, size, name);
    // Deliberate: whichever list was searched, the entry of that index in grouplist loses the service.
    if (found < 0 || found >= grouplistsize) return;
    for (GroupMember **link = &grouplist[found].members; *link != nullptr; link = &(*link)->next) {
        GroupMember *member = *link;
        if (member->serviceIndex != serviceIndex) continue;
        *link = member->next;
        std::free(member);
        return;
    }
}

std::uint32_t ReadGroupOrderList(std::int32_t *count) {
    *count = 0;
    HKEY key = 0;
    std::uint32_t rc =
        static_cast<std::uint32_t>(RegOpenKeyExA(HKEY_LOCAL_MACHINE, groupOrderKeyPath, 0, KEY_ALL_ACCESS, &key));
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;

    HeapText names;
    DWORD bytes = 0;
    rc = ReadWholeValue(key, groupOrderValue, &names, &bytes);
    (void)RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return rc;

    const char *name = names.get();
    const char *end = name + bytes;
    while (name < end && *name == '\0')
        name++;
    for (; *name != '\0'; name += std::strlen(name) + 1)
        AppendOrderedGroup(count, name);
    return ERROR_SUCCESS;
}

std::uint32_t SortServicesInGroups() {
    HKEY key = 0;
    std::uint32_t rc =
        static_cast<std::uint32_t>(RegOpenKeyExA(HKEY_LOCAL_MACHINE, tagOrderKeyPath, 0, KEY_ALL_ACCESS, &key));
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closeKey(&key);

    for (std::int32_t index = 0; index < grouplistsize && grouplist[index].name != nullptr; index++) {
        GroupListEntry &group = grouplist[index];
        HeapText vector;
        DWORD bytes = 0;
        rc = QueryValueSize(key, group.name, &bytes);
        if (rc == ERROR_FILE_NOT_FOUND) continue;
        if (rc == ERROR_SUCCESS) rc = ReadValue(key, group.name, &vector, &bytes);
        if (rc != ERROR_SUCCESS) return rc;
        if (bytes >= tagBytes) group.members = SortedByTags(group.members, vector.get(), bytes);
    }
    return ERROR_SUCCESS;
}
