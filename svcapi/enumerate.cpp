// SPDX-License-Identifier: MIT
// enumerate: listing services.
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/listing.h"

#include <algorithm>

DWORD EnumerateServices(SC_HANDLE manager, DWORD type, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : ListServicesAndRecordZero(*call.handle->link, type, state, services);
}

DWORD EnumerateAllServices(SC_HANDLE manager, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : ListAllServices(*call.handle->link, services);
}

DWORD EnumerateDependencies(SC_HANDLE service, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    if (rc != ERROR_SUCCESS) return rc;
    return ListDependencies(*call.handle->link, call.handle->index, static_cast<std::int32_t>(state), services);
}

BOOL EnumServicesStatusA(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                         LPENUM_SERVICE_STATUSA lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                         LPDWORD lpServicesReturned, LPDWORD lpResumeHandle) {
    if (pcbBytesNeeded == nullptr || lpServicesReturned == nullptr || (lpServices == nullptr && cbBufSize != 0) ||
        (dwServiceType & (SERVICE_WIN32 | SERVICE_DRIVER)) == 0 || (dwServiceState & SERVICE_STATE_ALL) == 0) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    std::vector<ListedService> services;
    DWORD rc = EnumerateServices(hSCManager, dwServiceType, dwServiceState, &services);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    const std::size_t first = std::min<std::size_t>(lpResumeHandle != nullptr ? *lpResumeHandle : 0, services.size());
    rc = PackServices(services, first, lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned);
    if (lpResumeHandle != nullptr) {
        *lpResumeHandle = rc == ERROR_MORE_DATA ? static_cast<DWORD>(first) + *lpServicesReturned : 0;
    }
    return Succeeded(rc);
}

BOOL tvEnumServiceDependencies(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                               DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    if (pcbBytesNeeded == nullptr || lpServicesReturned == nullptr || (lpServices == nullptr && cbBufSize != 0)) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    std::vector<ListedService> services;
    const DWORD rc = EnumerateDependencies(hService, dwServiceState, &services);
    return Succeeded(rc != ERROR_SUCCESS
                         ? rc
                         : PackServices(services, 0, lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned));
}
