// SPDX-License-Identifier: MIT
// dependencies: the walk over what a service depends on, directly and through further services and groups.
//
// Owns:    nothing beyond a walk; the collected records belong to the caller.
// Reads:   "DependOnGroup" of each service walked; it names services, and with a leading "+" load-order groups.
// Thread:  main thread only.
//
// The walk keeps its own stack on the heap, since the depth of a dependency chain is the registry's to choose; and it
// walks the members of a group once, since the registry chooses, too, how often a group is named. A plan of a start is
// walked by tvsc/boot_plan.cpp, which says why.
#include "servd/servd_svc_proc/dependencies.h"

#include "servd/checked_memory.h"
#include "servd/limits.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/servd_svc_proc/word_sum.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"
#include "util/multi_string.h"

#include <cstring>

namespace {

// A service whose dependencies are being walked.
struct Visit {
    std::int32_t index;
    char *names;                // its dependencies, each with its terminator; owned
    std::string_view namesLeft; // those not yet walked
    std::int32_t group;         // being walked, by its place in grouplist; -1 for none
    const GroupMember *members; // what is left of it
    Visit *outer;               // the service that depends on this one
};

// One walk: what the caller asked for, and where it has got to.
struct Walk {
    std::int32_t rootIndex;
    HKEY servicesKey;
    std::int32_t stateMask;
    std::int32_t *bytesLeft;
    svd_enum_status_list_t **list;
    std::int32_t *bytesNeeded;
    std::int32_t *count;
    char *passedOver;   // per record: walked, but in none of the wanted states
    char *walkedGroups; // per group: nothing would come of naming it again
    Visit *innermost;
};

bool IsWantedState(std::int32_t state, std::int32_t stateMask) {
    if ((stateMask & SERVICE_STATE_ALL) == SERVICE_STATE_ALL) return true;
    if ((stateMask & SERVICE_ACTIVE) != 0) return state >= SERVICE_START_PENDING && state <= SERVICE_PAUSED;
    if ((stateMask & SERVICE_INACTIVE) != 0) return state == SERVICE_STOPPED;
    return false;
}

void PushVisit(Walk &walk, std::int32_t index, HeapText names, DWORD bytes) {
    auto *visit = static_cast<Visit *>(CheckedCalloc(1, sizeof(Visit)));
    *visit = {.index = index,
              .names = names.get(),
              .namesLeft = {names.get(), bytes + 1}, // with a terminator, of those that stand behind every value
              .group = -1,
              .members = nullptr,
              .outer = walk.innermost};
    (void)names.release();
    walk.innermost = visit;
}

void PopVisit(Walk &walk) {
    Visit *visit = walk.innermost;
    walk.innermost = visit->outer;
    std::free(visit->names);
    std::free(visit);
}

// Returns the next member of the group that is being walked, -1 after the last.
std::int32_t NextMember(Walk &walk, Visit &visit) {
    if (visit.members == nullptr) {
        // Each member has been collected or passed over by now, or is to be left alone in any case.
        if (visit.group >= 0) walk.walkedGroups[visit.group] = 1;
        visit.group = -1;
        return -1;
    }
    const std::int32_t index = visit.members->serviceIndex;
    visit.members = visit.members->next;
    return index;
}

// Returns the index of the next service that this one depends on, -1 after the last. Names that nobody bears, groups
// without members and groups walked before are passed over.
std::int32_t NextDependency(Walk &walk, Visit &visit) {
    for (;;) {
        const std::int32_t member = NextMember(walk, visit);
        if (member >= 0) return member;
        const std::string_view string = TakeString(&visit.namesLeft);
        if (string.empty()) return -1;
        const char *name = string.data();
        if (*name == SC_GROUP_IDENTIFIERA) {
            const std::int32_t group = GetGroupIndexFromName(grouplist, &grouplistsize, name + 1);
            if (group < 0 || walk.walkedGroups[group] != 0) continue;
            visit.group = group;
            visit.members = grouplist[group].members;
            continue;
        }
        const std::int32_t index = GetServiceIndexFromName(name);
        if (index >= 0) return index;
    }
}

// Collects a service whose own dependencies have been walked. Returns 0, or 234 when there is no room for it.
Win32Code Collect(Walk &walk, std::int32_t index) {
    ServiceDatabaseEntry &entry = svcdb[index];
    if (index == walk.rootIndex) return ERROR_SUCCESS;
    entry.visiting = 0;
    if (!IsWantedState(entry.status.dwCurrentState, walk.stateMask)) {
        walk.passedOver[index] = 1;
        return ERROR_SUCCESS;
    }
    entry.visited = 1;

    const std::int32_t bytes = svcnames[index].recordBytes;
    *walk.bytesNeeded = WordSum(*walk.bytesNeeded, bytes);
    if (bytes > *walk.bytesLeft) {
        *walk.bytesLeft = -1; // no later record fits either
        return ERROR_MORE_DATA;
    }
    svd_enum_status_list_t *record = NewEnumRecord(entry);
    record->next = *walk.list;
    *walk.list = record;
    *walk.bytesLeft -= bytes;
    ++*walk.count;
    return ERROR_SUCCESS;
}

// Begins a service: reads its dependencies and leaves them to be walked, or collects it at once when it has none.
Win32Code Enter(Walk &walk, std::int32_t index) {
    ServiceDatabaseEntry &entry = svcdb[index];
    if (entry.name == nullptr || entry.deletePending != 0) return ERROR_SUCCESS;
    if (entry.visiting != 0) return ERROR_CIRCULAR_DEPENDENCY;
    // A service passed over before would be passed over again, and so would all below it: walking it again at every
    // road that leads to it takes exponential time.
    if (entry.visited != 0 || walk.passedOver[index] != 0) return ERROR_SUCCESS;

    HKEY key = 0;
    Win32Code rc = RegOpenKeyExA(walk.servicesKey, entry.name, 0, KEY_ALL_ACCESS, &key);
    if (rc != ERROR_SUCCESS) return rc;
    const KeyGuard closeKey(&key);
    DWORD bytes = 0;
    rc = QueryValueSize(key, dependenciesValue, &bytes);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    if (rc == ERROR_FILE_NOT_FOUND || bytes == 0) return Collect(walk, index);

    entry.visiting = 1;
    HeapText names;
    rc = ReadValue(key, dependenciesValue, &names, &bytes);
    if (rc == ERROR_SUCCESS) PushVisit(walk, index, std::move(names), bytes);
    return rc;
}

bool EndsWalk(Win32Code rc) { return rc != ERROR_SUCCESS && rc != ERROR_MORE_DATA; }

} // namespace

svd_enum_status_list_t *NewEnumRecord(const ServiceDatabaseEntry &entry) {
    auto *record = static_cast<svd_enum_status_list_t *>(CheckedCalloc(1, sizeof(svd_enum_status_list_t)));
    record->name = CheckedCopy(entry.name);
    record->displayName = CheckedCopy(entry.displayName);
    record->status = entry.status;
    return record;
}

Win32Code CalculateDependencies(std::int32_t index, std::int32_t *bytesLeft, svd_enum_status_list_t **list,
                                std::int32_t *bytesNeeded, std::int32_t *count, std::int32_t rootIndex,
                                HKEY servicesKey, std::int32_t stateMask) {
    const HeapText passedOver(static_cast<char *>(CheckedCalloc(static_cast<std::size_t>(svcdbsize), 1)));
    const HeapText walkedGroups(static_cast<char *>(CheckedCalloc(static_cast<std::size_t>(grouplistsize), 1)));
    Walk walk = {.rootIndex = rootIndex,
                 .servicesKey = servicesKey,
                 .stateMask = stateMask,
                 .bytesLeft = bytesLeft,
                 .list = list,
                 .bytesNeeded = bytesNeeded,
                 .count = count,
                 .passedOver = passedOver.get(),
                 .walkedGroups = walkedGroups.get(),
                 .innermost = nullptr};

    // The result of a service that did not fit is overtaken by that of the service that depends on it.
    Win32Code rc = Enter(walk, index);
    while (walk.innermost != nullptr && !EndsWalk(rc)) {
        const std::int32_t dependency = NextDependency(walk, *walk.innermost);
        if (dependency >= 0) {
            rc = Enter(walk, dependency);
        } else {
            rc = Collect(walk, walk.innermost->index);
            PopVisit(walk);
        }
    }
    while (walk.innermost != nullptr) {
        PopVisit(walk);
    }
    return rc;
}

Win32Code SumDependencies(std::int32_t index, HKEY servicesKey, std::int32_t stateMask, std::int32_t *bytes) {
    std::int32_t room = 0;
    svd_enum_status_list_t *none = nullptr; // no record fits into no room
    std::int32_t count = 0;
    *bytes = 0;
    const Win32Code rc = CalculateDependencies(index, &room, &none, bytes, &count, index, servicesKey, stateMask);
    ClearVisitingFlags();
    return rc;
}
