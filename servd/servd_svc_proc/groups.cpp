// SPDX-License-Identifier: MIT
// groups: the load-order groups and the image-path list.
//
// Both are arrays of named entries, each heading a chain of svcdb indexes; the first null name ends the used entries.
// Groups of the order list come first, in its order; those that only services name follow as they are met.
// Owns:    both arrays, the entry names, the chain nodes (all malloc).
// Reads:   tags in svcdb; the registry keys ServiceGroupOrder and GroupOrderList.
// Thread:  main thread only; nothing here is locked.
// Deliberate: removal edits grouplist, whichever list was searched.
#include "servd/servd_svc_proc/groups.h"

#include "registry/key.h"
#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/name_index.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/little_endian.h"
#include "util/multi_string.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

GroupListEntry *grouplist;
std::int32_t grouplistsize;
ImagePathEntry *imagepathlist;
std::int32_t imagepathlistsize;

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

// A member of the group that is being sorted.
struct TaggedMember {
    std::uint32_t tag;
    std::int32_t place; // in the chain, before
    GroupMember *member;
    std::int32_t taken; // of the members with this tag; counted at the first of them
};

bool IsTaggedBefore(const TaggedMember &a, const TaggedMember &b) {
    return a.tag != b.tag ? a.tag < b.tag : a.place < b.place;
}

std::int32_t MemberCount(const GroupMember *members) {
    std::int32_t count = 0;
    for (; members != nullptr; members = members->next) {
        count++;
    }
    return count;
}

// The members by their tags, those with the same tag in the order of the chain. The caller frees them.
TaggedMember *MembersByTag(GroupMember *members, std::int32_t count) {
    auto *byTag = static_cast<TaggedMember *>(CheckedCalloc(static_cast<std::size_t>(count), sizeof(TaggedMember)));
    for (std::int32_t place = 0; place < count; place++, members = members->next) {
        const auto tag = static_cast<std::uint32_t>(svcdb[members->serviceIndex].tag);
        byTag[place] = {.tag = tag, .place = place, .member = members, .taken = 0};
    }
    std::sort(byTag, byTag + count, IsTaggedBefore);
    return byTag;
}

// Takes the first of the members with this tag that has not been taken; null when there is none.
GroupMember *TakeMemberWithTag(TaggedMember *byTag, std::int32_t count, std::uint32_t tag) {
    TaggedMember *end = byTag + count;
    TaggedMember *first =
        std::partition_point(byTag, end, [tag](const TaggedMember &tagged) { return tagged.tag < tag; });
    if (first == end || first->tag != tag) return nullptr;
    TaggedMember *next = first + first->taken;
    if (next == end || next->tag != tag) return nullptr;
    first->taken++;
    return std::exchange(next->member, nullptr);
}

// Links what has not been taken in the order of the chain before.
GroupMember *LinkedRest(TaggedMember *byTag, std::int32_t count) {
    TaggedMember *end =
        std::partition(byTag, byTag + count, [](const TaggedMember &tagged) { return tagged.member != nullptr; });
    std::sort(byTag, end, [](const TaggedMember &a, const TaggedMember &b) { return a.place > b.place; });
    GroupMember *rest = nullptr;
    for (TaggedMember *tagged = byTag; tagged != end; tagged++) {
        tagged->member->next = rest;
        rest = tagged->member;
    }
    return rest;
}

// Returns the members in the order of the tag vector, one for each tag that finds one, and then the rest as they stood.
// A vector may be long, and so may a group: the members are sorted by tag first, so that no tag has to walk them all.
GroupMember *SortedByTags(GroupMember *members, const char *vector, DWORD bytes) {
    const std::int32_t count = MemberCount(members);
    if (count == 0) return nullptr;
    const std::unique_ptr<TaggedMember, Calls<&std::free>> byTag(MembersByTag(members, count));
    GroupMember *sorted = nullptr;
    GroupMember **end = &sorted;
    std::int32_t left = count;
    for (DWORD offset = tagBytes; offset + tagBytes <= bytes && left > 0; offset += tagBytes) {
        GroupMember *member = TakeMemberWithTag(byTag.get(), count, DwordAt(vector + offset));
        if (member == nullptr) continue;
        *end = member;
        end = &member->next;
        left--;
    }
    *end = LinkedRest(byTag.get(), count);
    return sorted;
}

} // namespace

// The block itself grows by doubling: moved at every 20 entries, long lists would spend their time on it.
void ResizeGroupList(GroupListEntry **list, std::int32_t *size) {
    const auto entries = *list == nullptr ? std::size_t{0} : static_cast<std::size_t>(*size);
    const std::size_t room = std::bit_ceil(entries + growthEntries);
    if (*list == nullptr || room != std::bit_ceil(entries)) {
        *list = static_cast<GroupListEntry *>(CheckedRealloc(*list, room * sizeof **list));
    }
    // The searches find the end by a null name.
    std::memset(*list + entries, 0, growthEntries * sizeof **list);
    *size = static_cast<std::int32_t>(entries) + growthEntries;
}

std::int32_t GetGroupIndexFromName(const GroupListEntry *list, const std::int32_t *size, const char *name) {
    const auto bearsName = [list, size, name](std::int32_t place) {
        return place < *size && list[place].name != nullptr && std::strcmp(list[place].name, name) == 0;
    };
    if (const NameIndex *names = IndexOf(size)) return FindName(*names, name, bearsName);
    for (std::int32_t place = 0; place < *size; place++) {
        if (bearsName(place)) return place;
    }
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

Win32Code ReadGroupOrderList(std::int32_t *count) {
    *count = 0;
    HKEY key = 0;
    Win32Code rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, groupOrderKeyPath, 0, KEY_ALL_ACCESS, &key);
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;

    HeapText names;
    DWORD bytes = 0;
    rc = ReadWholeValue(key, groupOrderValue, &names, &bytes);
    (void)RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return rc;

    std::string_view rest(names.get(), bytes + 1); // with a terminator, of those that stand behind every value
    rest.remove_prefix(std::min(rest.find_first_not_of('\0'), rest.size()));
    for (std::string_view name = TakeString(&rest); !name.empty(); name = TakeString(&rest)) {
        AppendOrderedGroup(count, name.data());
    }
    return ERROR_SUCCESS;
}

Win32Code SortServicesInGroups() {
    HKEY key = 0;
    Win32Code rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, tagOrderKeyPath, 0, KEY_ALL_ACCESS, &key);
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
