// SPDX-License-Identifier: MIT
// enumerate: listing services, in pieces small enough that a reply stays one fragment.
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/listing.h"

#include <algorithm>
#include <optional>

namespace {

constexpr std::int32_t pieceBytes = 32 * 1024; // as the daemon counts: two names and 36 bytes a service

void Append(const svd_enum_status_list_t *records, std::vector<ListedService> *services) {
    for (; records != nullptr; records = records->next) {
        services->push_back({records->name, records->displayName, ToWin32(records->status), true});
    }
}

// One filter's services from a place on. The daemon answers 0 also when not all fitted: bytes needed tell.
DWORD ListPiece(DaemonLink &link, std::int32_t type, std::int32_t state, std::int32_t bytes, std::int32_t *resumeIndex,
                std::int32_t *bytesNeeded, std::vector<ListedService> *services) {
    servd_SERV_ENUM_STATUS_SERVICE argument = {*resumeIndex, type, state, bytes};
    servd_SERV_ENUM_STATUS_SERVICE_RETURN answer = {};
    const AnswerGuard<servd_SERV_ENUM_STATUS_SERVICE_RETURN, xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN> release(
        &answer);
    const DWORD rc = CallDaemon(link, ENUM_STATUS_SERVICE, xdr_servd_SERV_ENUM_STATUS_SERVICE, &argument,
                                xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    if (answer.status != ERROR_SUCCESS) return AsCode(answer.status);
    Append(answer.services, services);
    *resumeIndex = answer.resumeIndex;
    *bytesNeeded = answer.bytesNeeded;
    return ERROR_SUCCESS;
}

DWORD ListClass(DaemonLink &link, std::int32_t type, std::int32_t state, std::vector<ListedService> *services) {
    std::int32_t resumeIndex = 0;
    std::int32_t bytesNeeded = 0;
    std::int32_t bytes = pieceBytes;
    do {
        const std::size_t before = services->size();
        const DWORD rc = ListPiece(link, type, state, bytes, &resumeIndex, &bytesNeeded, services);
        // Place 0 is out of range only where there are no records at all.
        if (rc == ERROR_INVALID_PARAMETER && resumeIndex == 0) return ERROR_DATABASE_DOES_NOT_EXIST;
        if (rc != ERROR_SUCCESS) return rc;
        // One service may be larger than a piece.
        bytes = services->size() == before ? std::max(bytesNeeded, pieceBytes) : pieceBytes;
    } while (bytesNeeded > 0);
    return ERROR_SUCCESS;
}

// The service in record 0, which the enumeration leaves out; nothing when the record is free or about to be.
DWORD ListRecordZero(DaemonLink &link, std::optional<ListedService> *service) {
    service->reset();
    ListedService found;
    found.complete = false;
    DWORD rc = PeekRecord(link, 0, &found.status);
    if (rc == ERROR_INVALID_HANDLE) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;
    servd_SERV_QUERY_CONFIG_SERVICE argument = {0};
    servd_SERV_QUERY_CONFIG_SERVICE_RETURN answer = {};
    const AnswerGuard<servd_SERV_QUERY_CONFIG_SERVICE_RETURN, xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN> release(
        &answer);
    rc = CallDaemon(link, QUERY_CONFIG_SERVICE, xdr_servd_SERV_QUERY_CONFIG_SERVICE, &argument,
                    xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    found.displayName = answer.displayName;
    // The lowest record wins, so a display name of record 0 always leads to its own key name.
    rc = KeyNameOf(link, answer.displayName, &found.name);
    // One that is marked for deletion cannot be opened, and is not listed in any other record either.
    std::int32_t index = 0;
    if (rc == ERROR_SUCCESS) rc = OpenRecord(link, found.name.c_str(), &index);
    if (rc == ERROR_SUCCESS) rc = CloseRecord(link, index);
    if (rc == ERROR_SUCCESS) *service = std::move(found);
    return rc == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : rc;
}

} // namespace

DWORD ListDependencies(DaemonLink &link, std::int32_t index, std::int32_t state, std::vector<ListedService> *services) {
    std::int32_t bytes = pieceBytes;
    for (;;) {
        servd_SERV_ENUM_DEPEND_SERVICE argument = {index, state, bytes};
        servd_SERV_ENUM_DEPEND_SERVICE_RETURN answer = {};
        const AnswerGuard<servd_SERV_ENUM_DEPEND_SERVICE_RETURN, xdr_servd_SERV_ENUM_DEPEND_SERVICE_RETURN> release(
            &answer);
        const DWORD rc = CallDaemon(link, ENUM_DEPEND_SERVICE, xdr_servd_SERV_ENUM_DEPEND_SERVICE, &argument,
                                    xdr_servd_SERV_ENUM_DEPEND_SERVICE_RETURN, &answer);
        if (rc != ERROR_SUCCESS) return rc;
        if (answer.status == ERROR_MORE_DATA && answer.bytesNeeded > bytes) {
            bytes = answer.bytesNeeded;
            continue;
        }
        if (answer.status == ERROR_SUCCESS) Append(answer.services, services);
        return AsCode(answer.status);
    }
}

DWORD ListServices(DaemonLink &link, DWORD type, DWORD state, std::vector<ListedService> *services) {
    const auto stateFilter = static_cast<std::int32_t>(state);
    // Two questions: a filter with bits of both classes means the first class only.
    for (const DWORD serviceClass : {DWORD{SERVICE_WIN32}, DWORD{SERVICE_DRIVER}}) {
        if ((type & serviceClass) == 0) continue;
        const DWORD rc = ListClass(link, static_cast<std::int32_t>(serviceClass), stateFilter, services);
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

DWORD ListAllServices(DaemonLink &link, std::vector<ListedService> *services) {
    DWORD rc = ListServices(link, SERVICE_WIN32 | SERVICE_DRIVER, SERVICE_STATE_ALL, services);
    if (rc != ERROR_SUCCESS) return rc;
    std::optional<ListedService> recordZero;
    rc = ListRecordZero(link, &recordZero);
    if (recordZero) services->push_back(*std::move(recordZero));
    return rc;
}

DWORD EnumerateServices(SC_HANDLE manager, DWORD type, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : ListServices(*call.handle->link, type, state, services);
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
