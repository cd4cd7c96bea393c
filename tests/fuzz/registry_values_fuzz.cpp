// SPDX-License-Identifier: MIT
// Fuzz target over what the daemon reads from the registry at its start and in its walks: the group order list, the
// tag vectors, dependencies and texts may hold any bytes. Nothing may crash or read beyond a value; every service is
// found by its name, and stands in its group once.
//
// Input: values one after the other, each behind the number of its bytes (one byte): the group order list, the tag
// vector of "Net", then for each of four services its dependencies, group, display name and tag.
#include "tests/support/memory_registry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

void Require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

struct Input {
    const std::uint8_t *data;
    std::size_t size;
};

std::string TakeValue(Input *input) {
    if (input->size == 0) return {};
    const std::size_t bytes = std::min<std::size_t>(*input->data, input->size - 1);
    std::string value(reinterpret_cast<const char *>(input->data + 1), bytes);
    input->data += 1 + bytes;
    input->size -= 1 + bytes;
    return value;
}

void FillRegistry(Input input) {
    SetValue(groupOrderKeyPath, "List", REG_MULTI_SZ, TakeValue(&input));
    SetValue(tagOrderKeyPath, "Net", REG_BINARY, TakeValue(&input));
    for (const char *name : {"Alpha", "Beta", "Gamma", "Delta"}) {
        InstallService(name, {.imagePath = "/bin/shared"});
        SetValue(ServicePath(name), "DependOnGroup", REG_MULTI_SZ, TakeValue(&input));
        SetValue(ServicePath(name), "Group", REG_SZ, TakeValue(&input));
        SetValue(ServicePath(name), "DisplayName", REG_SZ, TakeValue(&input));
        SetValue(ServicePath(name), "Tag", REG_DWORD, TakeValue(&input));
    }
}

void CheckGroups() {
    for (std::int32_t group = 0; group < grouplistsize && grouplist[group].name != nullptr; ++group) {
        std::vector<int> times(static_cast<std::size_t>(svcdbsize));
        for (const GroupMember *member = grouplist[group].members; member != nullptr; member = member->next) {
            Require(member->serviceIndex >= 0 && member->serviceIndex < svcdbsize, "members are services");
            Require(++times[static_cast<std::size_t>(member->serviceIndex)] == 1, "a member stands in its group once");
        }
    }
}

void WalkDependencies() {
    HKEY servicesKey = 0;
    (void)RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &servicesKey);
    for (std::int32_t index = 0; index < svcdbsize; ++index) {
        if (svcdb[index].name == nullptr) continue;
        Require(GetServiceIndexFromName(svcdb[index].name) == index, "each service is found by its name");
        std::int32_t bytesLeft = 100000;
        std::int32_t bytesNeeded = 0;
        std::int32_t count = 0;
        svd_enum_status_list_t *list = nullptr;
        (void)CalculateDependencies(index, &bytesLeft, &list, &bytesNeeded, &count, index, servicesKey, 3);
        std::int32_t links = 0;
        for (const svd_enum_status_list_t *link = list; link != nullptr; link = link->next) {
            ++links;
        }
        Require(links == count, "the count is the list's length");
        servd_SERV_ENUM_DEPEND_SERVICE_RETURN reply = {};
        reply.services = list;
        FreeRecord(&reply);
        ClearVisitingFlags();
    }
    (void)RegCloseKey(servicesKey);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    InstallMemoryRegistry();
    FillRegistry({data, size});
    const bool built =
        ReadGroupOrderList(&firstunorderedgroupindex) == 0 && ReadServiceDatabase() == 0 && SortServicesInGroups() == 0;
    if (svcdb != nullptr) {
        if (built) CheckGroups();
        WalkDependencies();
    }
    EmptyServiceDatabase();
    RemoveMemoryRegistry();
    return 0;
}
