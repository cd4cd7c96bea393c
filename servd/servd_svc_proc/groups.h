// SPDX-License-Identifier: MIT
// groups: the load-order groups, and the services of each image path.
//
// Owns:    grouplist, imagepathlist and the names and nodes in them (all malloc memory).
// Thread:  main thread only; nothing here is locked.
#pragma once

#include "servd/win32_code.h"

#include <cstdint>
#include <type_traits>

// One service in a group.
struct GroupMember {
    std::int32_t serviceIndex;
    GroupMember *next;
};
static_assert(sizeof(void *) != 4 || sizeof(GroupMember) == 2 * sizeof(void *));

// A named list of services: a load-order group, or an image path in imagepathlist. The first null name ends the used
// entries.
struct GroupListEntry {
    char *name;
    GroupMember *members;
};
static_assert(sizeof(void *) != 4 || sizeof(GroupListEntry) == 2 * sizeof(void *));

using ImagePathEntry = GroupListEntry;

extern GroupListEntry *grouplist;
extern std::int32_t grouplistsize; // entries allocated
extern ImagePathEntry *imagepathlist;
extern std::int32_t imagepathlistsize;

// Each takes grouplist or imagepathlist with its size. The size's address tells which of the two it is: names are
// searched by an index there, and one by one in any other list.

// Grows a list by 20 zeroed entries; a null list is made, with 20.
void ResizeGroupList(GroupListEntry **list, std::int32_t *size);
// Returns the index of the first entry of this name (case-sensitive), -1 when there is none.
[[nodiscard]] std::int32_t GetGroupIndexFromName(const GroupListEntry *list, const std::int32_t *size,
                                                 const char *name);
// Puts a service in front of the members of the first entry of this name, which is made when there is none. The name is
// copied.
void AddServiceToGroupList(GroupListEntry **list, std::int32_t *size, const char *name, std::int32_t serviceIndex);
// Finds the first entry of this name and takes a service once off the members of that index, of grouplist in any case.
// The entry stays. What is not there is left alone.
void RemoveServiceFromGroupList(GroupListEntry *list, const std::int32_t *size, const char *name,
                                std::int32_t serviceIndex);
// Fills the front of grouplist, which is empty, with the groups of the order list. *count is their number, 0 also when
// there is no order. Returns 0 or the code of the registry call that failed; a key without the value "List" is such a
// failure, a missing key is not.
[[nodiscard]] Win32Code ReadGroupOrderList(std::int32_t *count);
// Brings the members of each group that has a tag vector into its order. Returns 0, also without any vectors, or the
// code of the registry call that failed; the groups before it stay sorted.
[[nodiscard]] Win32Code SortServicesInGroups();
