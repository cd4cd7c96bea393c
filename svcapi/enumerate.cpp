// SPDX-License-Identifier: MIT
// enumerate: listing services.
#include "svcapi/client.h"
#include "svcapi/dependents.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/listing.h"
#include "svcapi/process_status.h"
#include "svcapi/wide.h"

#include <algorithm>
#include <set>

namespace {

// Where the caller wants a list, and in which records.
template <typename Record>
struct ListBuffer {
    Record *services;
    DWORD bytes;
    DWORD *bytesNeeded;
    DWORD *returned;
};
template <typename Record>
ListBuffer(Record *, DWORD, DWORD *, DWORD *) -> ListBuffer<Record>;

template <typename Record>
bool IsUsable(const ListBuffer<Record> &buffer) {
    return buffer.bytesNeeded != nullptr && buffer.returned != nullptr &&
           (buffer.services != nullptr || buffer.bytes == 0);
}

template <typename Record>
DWORD Pack(const ServiceList &services, std::size_t first, const ListBuffer<Record> &buffer) {
    return PackServices(services, first, buffer.services, buffer.bytes, buffer.bytesNeeded, buffer.returned);
}

// The services that `list` tells of a service.
template <typename Record>
BOOL Related(decltype(EnumerateDependents) *list, SC_HANDLE service, DWORD state, const ListBuffer<Record> &buffer) {
    if (!IsUsable(buffer)) return Succeeded(ERROR_INVALID_PARAMETER);
    std::vector<ListedService> related;
    const DWORD rc = list(service, state, &related);
    return Succeeded(rc != ERROR_SUCCESS ? rc : Pack(ListOf(related), 0, buffer));
}

// What an enumeration is asked for.
struct Wanted {
    DWORD type;
    DWORD state;
    LPCSTR group; // null: any
    bool processes = false;
};

bool IsPossible(const Wanted &wanted) {
    return (wanted.type & (SERVICE_WIN32 | SERVICE_DRIVER)) != 0 && (wanted.state & SERVICE_STATE_ALL) != 0;
}

// The names of all services of a load-order group; 1060 when there is none in a group that has a name.
DWORD NamesOfGroup(DaemonLink &link, const std::string &group, std::set<std::string> *names) {
    std::vector<ListedService> services;
    DWORD rc = ListAllServices(link, &services);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<ServiceNode> nodes;
    rc = ReadServiceNodes(link, services, &nodes);
    if (rc != ERROR_SUCCESS) return rc;
    for (const ServiceNode &node : nodes) {
        if (node.group == group) names->insert(node.name);
    }
    return names->empty() && !group.empty() ? ERROR_SERVICE_DOES_NOT_EXIST : ERROR_SUCCESS;
}

// Leaves the services of these names.
void KeepNamed(const std::set<std::string> &names, ServiceList *services) {
    ServiceList kept;
    for (const ServiceList::Place &place : services->places) {
        if (names.contains(std::string(NameIn(*services, place)))) Append(&kept, ServiceAt(*services, place));
    }
    *services = std::move(kept);
}

DWORD ListWanted(DaemonLink &link, const Wanted &wanted, ServiceList *services) {
    std::set<std::string> names;
    DWORD rc = wanted.group != nullptr ? NamesOfGroup(link, wanted.group, &names) : ERROR_SUCCESS;
    if (rc == ERROR_SUCCESS) rc = ListServicesAndRecordZero(link, wanted.type, wanted.state, services);
    if (rc != ERROR_SUCCESS) return rc;
    if (wanted.group != nullptr) KeepNamed(names, services);
    if (!wanted.processes) return ERROR_SUCCESS;
    for (ServiceList::Place &place : services->places) {
        place.processId = ProcessOf(link, std::string(NameIn(*services, place)), place.status);
    }
    return ERROR_SUCCESS;
}

// Packs a list from a resume handle on, which may be null, and moves that on. Returns 0 or 234.
template <typename Record>
DWORD PackFrom(const ServiceList &services, const ListBuffer<Record> &buffer, DWORD *resumeHandle) {
    const std::size_t first =
        std::min<std::size_t>(resumeHandle != nullptr ? *resumeHandle : 0, services.places.size());
    const DWORD rc = Pack(services, first, buffer);
    if (resumeHandle != nullptr) {
        *resumeHandle = rc == ERROR_MORE_DATA ? static_cast<DWORD>(first) + *buffer.returned : 0;
    }
    return rc;
}

// Lists services from a resume handle on, which may be null.
template <typename Record>
BOOL Enumerate(SC_HANDLE manager, const Wanted &wanted, const ListBuffer<Record> &buffer, DWORD *resumeHandle) {
    if (!IsUsable(buffer) || !IsPossible(wanted)) return Succeeded(ERROR_INVALID_PARAMETER);
    HandleCall call;
    DWORD rc = BeginManagerCall(manager, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    ServiceList &services = call.handle->link->listed;
    Truncate(&services, 0); // a call that an exception ended has left some
    rc = ListWanted(*call.handle->link, wanted, &services);
    if (rc == ERROR_SUCCESS) rc = PackFrom(services, buffer, resumeHandle);
    Empty(&services);
    return Succeeded(rc);
}

} // namespace

DWORD EnumerateServices(SC_HANDLE manager, DWORD type, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    DWORD rc = BeginManagerCall(manager, &call);
    if (rc != ERROR_SUCCESS) return rc;
    ServiceList listed;
    rc = ListServicesAndRecordZero(*call.handle->link, type, state, &listed);
    if (rc == ERROR_SUCCESS) AppendTo(services, listed);
    return rc;
}

DWORD EnumerateAllServices(SC_HANDLE manager, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : ListAllServices(*call.handle->link, services);
}

DWORD QueryListedService(SC_HANDLE service, std::optional<ListedService> *listed) {
    listed->reset();
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    if (rc != ERROR_SUCCESS) return rc;
    if (call.handle->index == 0) return FindRecordZero(*call.handle->link, call.handle->name, listed);
    return FindListedService(*call.handle->link, call.handle->name, &call.handle->place, listed);
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
    return Enumerate(hSCManager, {dwServiceType, dwServiceState, nullptr},
                     ListBuffer{lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned}, lpResumeHandle);
}

BOOL EnumServicesStatusW(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                         LPENUM_SERVICE_STATUSW lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                         LPDWORD lpServicesReturned, LPDWORD lpResumeHandle) {
    return Enumerate(hSCManager, {dwServiceType, dwServiceState, nullptr},
                     ListBuffer{lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned}, lpResumeHandle);
}

BOOL EnumServicesStatusExA(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType, DWORD dwServiceState,
                           LPBYTE lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                           LPDWORD lpResumeHandle, LPCSTR pszGroupName) {
    if (InfoLevel != SC_ENUM_PROCESS_INFO) return Succeeded(ERROR_INVALID_LEVEL);
    auto *const records = reinterpret_cast<LPENUM_SERVICE_STATUS_PROCESSA>(lpServices);
    return Enumerate(hSCManager, {dwServiceType, dwServiceState, pszGroupName, true},
                     ListBuffer{records, cbBufSize, pcbBytesNeeded, lpServicesReturned}, lpResumeHandle);
}

BOOL EnumServicesStatusExW(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType, DWORD dwServiceState,
                           LPBYTE lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                           LPDWORD lpResumeHandle, LPCWSTR pszGroupName) {
    NarrowArguments narrow;
    const LPCSTR group = Narrow(&narrow, pszGroupName);
    if (narrow.code != ERROR_SUCCESS) return Succeeded(narrow.code);
    if (InfoLevel != SC_ENUM_PROCESS_INFO) return Succeeded(ERROR_INVALID_LEVEL);
    auto *const records = reinterpret_cast<LPENUM_SERVICE_STATUS_PROCESSW>(lpServices);
    return Enumerate(hSCManager, {dwServiceType, dwServiceState, group, true},
                     ListBuffer{records, cbBufSize, pcbBytesNeeded, lpServicesReturned}, lpResumeHandle);
}

BOOL EnumDependentServicesA(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                            DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    return Related(EnumerateDependents, hService, dwServiceState,
                   ListBuffer{lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned});
}

BOOL EnumDependentServicesW(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSW lpServices,
                            DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    return Related(EnumerateDependents, hService, dwServiceState,
                   ListBuffer{lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned});
}

BOOL tvEnumServiceDependencies(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                               DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned) {
    return Related(EnumerateDependencies, hService, dwServiceState,
                   ListBuffer{lpServices, cbBufSize, pcbBytesNeeded, lpServicesReturned});
}
