// SPDX-License-Identifier: MIT
// autostart: starts the services that ask for it when the daemon starts, and whatever they depend on.
//
// Owns:    nothing.
// Reads:   "Start" of every service; the dependencies through the walk.
// Thread:  main thread only, before the first request is served.
// Deliberate: the order is that of the records, not of groups and tags; a dependency is started whatever its own start
// type; nothing that fails here is reported, and a dependency that fails stops nobody.
#include "servd/servd_svc_proc/autostart.h"

#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/start.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <limits>

namespace {

bool StartsAtBoot(HKEY serviceKey) {
    DWORD start = 0;
    return ReadNumber(serviceKey, startTypeValue, &start) == ERROR_SUCCESS && start <= SERVICE_AUTO_START;
}

svd_enum_status_list_t *Reversed(svd_enum_status_list_t *list) {
    svd_enum_status_list_t *reversed = nullptr;
    while (list != nullptr) {
        svd_enum_status_list_t *next = list->next;
        list->next = reversed;
        reversed = list;
        list = next;
    }
    return reversed;
}

// The stopped services that must be started before this one, the deepest first. The caller frees them.
svd_enum_status_list_t *StoppedDependencies(std::int32_t index, HKEY servicesKey) {
    std::int32_t bytesLeft = std::numeric_limits<std::int32_t>::max();
    svd_enum_status_list_t *list = nullptr;
    std::int32_t bytesNeeded = 0;
    std::int32_t count = 0;
    // A cycle or an unreadable service leaves what was found until then; that is started.
    (void)CalculateDependencies(index, &bytesLeft, &list, &bytesNeeded, &count, index, servicesKey, SERVICE_INACTIVE);
    ClearVisitingFlags();
    return Reversed(list);
}

void StartDependencies(svd_enum_status_list_t *list) {
    while (list != nullptr) {
        svd_enum_status_list_t *record = list;
        list = record->next;
        const std::int32_t index = GetServiceIndexFromName(record->name);
        (void)QuickStartService(index, nullptr, 0); // the next one and the dependent service are tried in any case
        std::free(record->name);
        std::free(record->displayName);
        std::free(record);
    }
}

void AutoStartService(std::int32_t index, HKEY servicesKey) {
    HKEY serviceKey = 0;
    if (RegOpenKeyExA(servicesKey, svcdb[index].name, 0, KEY_ALL_ACCESS, &serviceKey) != ERROR_SUCCESS) return;
    const KeyGuard closeService(&serviceKey);
    if (!StartsAtBoot(serviceKey)) return;
    StartDependencies(StoppedDependencies(index, servicesKey));
    (void)QuickStartService(index, nullptr, 0);
}

} // namespace

Win32Code RunAutoStartServices() {
    HKEY servicesKey = 0;
    // Without the services key no service can be read, and each would be skipped.
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, &servicesKey) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    const KeyGuard closeServices(&servicesKey);
    for (std::int32_t index = 0; index < svcdbsize; index++) {
        // A service that runs by now was started as somebody's dependency.
        if (svcdb[index].name != nullptr && svcdb[index].status.dwCurrentState == SERVICE_STOPPED) {
            AutoStartService(index, servicesKey);
        }
    }
    return ERROR_SUCCESS;
}
