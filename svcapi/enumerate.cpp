// SPDX-License-Identifier: MIT
// enumerate: listing services.
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/listing.h"

#include <algorithm>

namespace {

// Where the caller wants a list.
struct ListBuffer {
    ENUM_SERVICE_STATUSA *services;
    DWORD bytes;
    DWORD *bytesNeeded;
    DWORD *returned;
};

bool IsUsable(const ListBuffer &buffer) {
    return buffer.bytesNeeded != nullptr && buffer.returned != nullptr &&
           (buffer.services != nullptr || buffer.bytes == 0);
}

DWORD Pack(const std::vector<ListedService> &services, std::size_t first, const ListBuffer &buffer) {
    return PackServices(services, first, buffer.services, buffer.bytes, buffer.bytesNeeded, buffer.returned);
}

// The services that `list` tells of a service.
BOOL Related(decltype(EnumerateDependents) *list, SC_HANDLE service, DWORD state, const ListBuffer &buffer) {
    if (!IsUsable(buffer)) return Succeeded(ERROR_INVALID_PARAMETER);
    std::vector<ListedService> services;
    const DWORD rc = list(service, state, &services);
    return Succeeded(rc != ERROR_SUCCESS ? rc : Pack(services, 0, buffer));
}

} // namespace

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
    const ListBuffer buffer = {lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned};
    if (!IsUsable(buffer) || (dwServiceType & (SERVICE_WIN32 | SERVICE_DRIVER)) == 0 ||
        (dwServiceState & SERVICE_STATE_ALL) == 0) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    std::vector<ListedService> services;
    DWORD rc = EnumerateServices(hSCManager, dwServiceType, dwServiceState, &services);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    const std::size_t first = std::min<std::size_t>(lpResumeHandle != nullptr ? *lpResumeHandle : 0, services.size());
    rc = Pack(services, first, buffer);
    if (lpResumeHandle != nullptr) {
        *lpResumeHandle = rc == ERROR_MORE_DATA ? static_cast<DWORD>(first) + *lpServicesReturned : 0;
    }
    return Succeeded(rc);
}

BOOL EnumDependentServicesA(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                            DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    return Related(EnumerateDependents, hService, dwServiceState,
                   {lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned});
}

BOOL tvEnumServiceDependencies(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                               DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    return Related(EnumerateDependencies, hService, dwServiceState,
                   {lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned});
}
