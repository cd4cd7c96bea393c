// SPDX-License-Identifier: MIT
// service: opening, creating, deleting, starting and controlling one service; its status and its names.
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/limits.h"
#include "svcapi/listing.h"
#include "util/multi_string.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::int32_t peekControl = 0; // below every control that the daemon would hand on

SC_HANDLE AddService(const HandleCall &call, const char *name, std::int32_t index) {
    OpenHandle service;
    service.kind = HandleKind::service;
    service.link = call.handle->link;
    service.name = name;
    service.index = index;
    service.restarts = service.link->restarts;
    return static_cast<SC_HANDLE>(AddHandle(std::move(service)));
}

DWORD ControlRecord(DaemonLink &link, std::int32_t index, std::int32_t control,
                    servd_SERV_CONTROL_SERVICE_RETURN *answer) {
    servd_SERV_CONTROL_SERVICE argument = {index, control};
    *answer = {};
    return CallDaemon(link, CONTROL_SERVICE, xdr_servd_SERV_CONTROL_SERVICE, &argument,
                      xdr_servd_SERV_CONTROL_SERVICE_RETURN, answer);
}

// The words of a control's answer that mean something; the others are left over from an earlier control of anybody's.
SERVICE_STATUS TrueWords(const servd_SERV_CONTROL_SERVICE_RETURN &answer) {
    const SERVICE_STATUS told = ToWin32(answer.serviceStatus);
    const bool foundDead = answer.status == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && told.dwCurrentState == SERVICE_STOPPED;
    if (answer.status == ERROR_SUCCESS || foundDead) return told;
    SERVICE_STATUS status = {};
    status.dwCurrentState = told.dwCurrentState;
    status.dwControlsAccepted = told.dwControlsAccepted;
    // The state was noted before the daemon found the process gone.
    if (answer.status == ERROR_SERVICE_NOT_ACTIVE) status.dwCurrentState = SERVICE_STOPPED;
    return status;
}

DWORD QueryRecord(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status) {
    servd_SERV_QUERY_STATUS_SERVICE argument = {index};
    servd_SERV_QUERY_STATUS_SERVICE_RETURN answer = {};
    const DWORD rc = CallDaemon(link, QUERY_STATUS_SERVICE, xdr_servd_SERV_QUERY_STATUS_SERVICE, &argument,
                                xdr_servd_SERV_QUERY_STATUS_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    if (answer.status == ERROR_SUCCESS) *status = ToWin32(answer.serviceStatus);
    return AsCode(answer.status);
}

DWORD StartRecord(DaemonLink &link, std::int32_t index, DWORD argc, LPCSTR *argv) {
    std::vector<svd_arglist_t> links(argc);
    for (DWORD i = 0; i < argc; ++i) {
        links[i] = {Borrowed(argv[i]), i + 1 < argc ? &links[i + 1] : nullptr};
    }
    servd_SERV_START_SERVICE argument = {index, links.empty() ? nullptr : links.data(),
                                         static_cast<std::int32_t>(argc)};
    servd_SERV_START_SERVICE_RETURN answer = {};
    const DWORD rc = CallDaemon(link, START_SERVICE, xdr_servd_SERV_START_SERVICE, &argument,
                                xdr_servd_SERV_START_SERVICE_RETURN, &answer);
    return rc != ERROR_SUCCESS ? rc : AsCode(answer.status);
}

DWORD PassiveStatus(DaemonLink &link, const OpenHandle &service, SERVICE_STATUS *status, bool *complete) {
    std::vector<ListedService> services;
    const DWORD rc = ListServices(link, SERVICE_WIN32 | SERVICE_DRIVER, SERVICE_STATE_ALL, &services);
    if (rc != ERROR_SUCCESS) return rc;
    const auto found = std::find_if(services.begin(), services.end(),
                                    [&](const ListedService &listed) { return listed.name == service.name; });
    *complete = found != services.end();
    if (*complete) {
        *status = found->status;
        return ERROR_SUCCESS;
    }
    return PeekRecord(link, service.index, status);
}

// Hands a name out under the rules of the two name calls.
DWORD CopyName(const std::string &name, LPSTR buffer, LPDWORD chars) {
    const DWORD room = *chars;
    *chars = static_cast<DWORD>(name.size());
    if (buffer == nullptr || room <= name.size()) return ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    return ERROR_SUCCESS;
}

} // namespace

DWORD PeekRecord(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status) {
    servd_SERV_CONTROL_SERVICE_RETURN answer;
    const DWORD rc = ControlRecord(link, index, peekControl, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    if (answer.status != ERROR_SERVICE_NOT_ACTIVE && answer.status != ERROR_INVALID_SERVICE_CONTROL) {
        return AsCode(answer.status);
    }
    *status = TrueWords(answer);
    return ERROR_SUCCESS;
}

DWORD DisplayNameOf(DaemonLink &link, const char *name, std::string *displayName) {
    servd_SERV_GET_DISPLAY_SERVICE argument = {Borrowed(name)};
    servd_SERV_GET_DISPLAY_SERVICE_RETURN answer = {};
    const AnswerGuard<servd_SERV_GET_DISPLAY_SERVICE_RETURN, xdr_servd_SERV_GET_DISPLAY_SERVICE_RETURN> release(
        &answer);
    const DWORD rc = CallDaemon(link, GET_DISPLAY_SERVICE, xdr_servd_SERV_GET_DISPLAY_SERVICE, &argument,
                                xdr_servd_SERV_GET_DISPLAY_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    *displayName = answer.displayName;
    return AsCode(answer.status);
}

DWORD KeyNameOf(DaemonLink &link, const char *displayName, std::string *name) {
    servd_SERV_GET_KEY_SERVICE argument = {Borrowed(displayName)};
    servd_SERV_GET_KEY_SERVICE_RETURN answer = {};
    const AnswerGuard<servd_SERV_GET_KEY_SERVICE_RETURN, xdr_servd_SERV_GET_KEY_SERVICE_RETURN> release(&answer);
    const DWORD rc = CallDaemon(link, GET_KEY_SERVICE, xdr_servd_SERV_GET_KEY_SERVICE, &argument,
                                xdr_servd_SERV_GET_KEY_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    *name = answer.name;
    return AsCode(answer.status);
}

SC_HANDLE OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD) {
    if (!Succeeded(lpServiceName != nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER)) return nullptr;
    HandleCall call;
    if (!Succeeded(BeginManagerCall(hSCManager, &call))) return nullptr;
    std::int32_t index = 0;
    if (!Succeeded(OpenRecord(*call.handle->link, lpServiceName, &index))) return nullptr;
    return AddService(call, lpServiceName, index);
}

SC_HANDLE CreateServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPCSTR lpDisplayName, DWORD, DWORD dwServiceType,
                         DWORD dwStartType, DWORD dwErrorControl, LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup,
                         LPDWORD lpdwTagId, LPCSTR lpDependencies, LPCSTR lpServiceStartName, LPCSTR) {
    const bool hasGroup = lpLoadOrderGroup != nullptr && *lpLoadOrderGroup != '\0';
    if (lpServiceName == nullptr || lpBinaryPathName == nullptr || (lpdwTagId != nullptr && !hasGroup) ||
        !CanBeLoaded(lpBinaryPathName) || !CanBeLoaded(lpLoadOrderGroup)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (!IsServiceName(lpServiceName) || !CanBeLoaded(lpDisplayName)) {
        SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    HandleCall call;
    if (!Succeeded(BeginManagerCall(hSCManager, &call))) return nullptr;
    // One lone terminator means no dependencies; a count of 0 would not say so.
    const char *dependencies = lpDependencies != nullptr ? lpDependencies : "";
    servd_SERV_CREATE_SERVICE argument = {
        Borrowed(lpServiceName),
        Borrowed(lpDisplayName != nullptr ? lpDisplayName : lpServiceName),
        dwServiceType,
        dwStartType,
        dwErrorControl,
        Borrowed(lpBinaryPathName),
        Borrowed(hasGroup ? lpLoadOrderGroup : ""),
        {static_cast<std::uint32_t>(MultiStringBytes(dependencies)), Borrowed(dependencies)},
        Borrowed(lpServiceStartName != nullptr ? lpServiceStartName : ""),
        lpdwTagId != nullptr ? 1 : 0};
    servd_SERV_CREATE_SERVICE_RETURN answer = {};
    const DWORD rc = CallDaemon(*call.handle->link, CREATE_SERVICE, xdr_servd_SERV_CREATE_SERVICE, &argument,
                                xdr_servd_SERV_CREATE_SERVICE_RETURN, &answer);
    if (!Succeeded(rc) || !Succeeded(AsCode(answer.status))) return nullptr;
    if (lpdwTagId != nullptr) *lpdwTagId = answer.tag; // else it is the tag of somebody's earlier create
    return AddService(call, lpServiceName, answer.handle);
}

BOOL DeleteService(SC_HANDLE hService) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(hService, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    servd_SERV_DELETE_SERVICE argument = {call.handle->index};
    servd_SERV_DELETE_SERVICE_RETURN answer = {};
    const DWORD called = CallDaemon(*call.handle->link, DELETE_SERVICE, xdr_servd_SERV_DELETE_SERVICE, &argument,
                                    xdr_servd_SERV_DELETE_SERVICE_RETURN, &answer);
    return Succeeded(called != ERROR_SUCCESS ? called : AsCode(answer.status));
}

BOOL StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors) {
    if (dwNumServiceArgs != 0 && lpServiceArgVectors == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    HandleCall call;
    const DWORD rc = BeginServiceCall(hService, &call);
    return Succeeded(rc != ERROR_SUCCESS
                         ? rc
                         : StartRecord(*call.handle->link, call.handle->index, dwNumServiceArgs, lpServiceArgVectors));
}

BOOL ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus) {
    if (lpServiceStatus == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    *lpServiceStatus = {};
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    servd_SERV_CONTROL_SERVICE_RETURN answer;
    rc = ControlRecord(*call.handle->link, call.handle->index, static_cast<std::int32_t>(dwControl), &answer);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    if (answer.status != ERROR_INVALID_HANDLE) *lpServiceStatus = TrueWords(answer);
    return Succeeded(AsCode(answer.status));
}

BOOL tvDeclareServiceDead(SC_HANDLE hService) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(hService, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    SERVICE_STATUS dead = {};
    dead.dwCurrentState = SERVICE_STOPPED;
    dead.dwWin32ExitCode = ERROR_PROCESS_ABORTED;
    return Succeeded(SetRecordStatus(*call.handle->link, call.handle->index, dead));
}

BOOL QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus) {
    if (lpServiceStatus == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    HandleCall call;
    const DWORD rc = BeginServiceCall(hService, &call);
    return Succeeded(rc != ERROR_SUCCESS ? rc : QueryRecord(*call.handle->link, call.handle->index, lpServiceStatus));
}

BOOL tvQueryServiceStatusPassive(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus, BOOL *complete) {
    if (lpServiceStatus == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    HandleCall call;
    bool allWords = false;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc == ERROR_SUCCESS) rc = PassiveStatus(*call.handle->link, *call.handle, lpServiceStatus, &allWords);
    if (complete != nullptr) *complete = allWords ? TRUE : FALSE;
    return Succeeded(rc);
}

DWORD QueryDisplayName(SC_HANDLE manager, const char *name, std::string *displayName) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : DisplayNameOf(*call.handle->link, name, displayName);
}

DWORD QueryKeyName(SC_HANDLE manager, const char *displayName, std::string *name) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : KeyNameOf(*call.handle->link, displayName, name);
}

BOOL GetServiceDisplayNameA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPSTR lpDisplayName, LPDWORD lpcchBuffer) {
    if (lpServiceName == nullptr || lpcchBuffer == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    std::string displayName;
    const DWORD rc = QueryDisplayName(hSCManager, lpServiceName, &displayName);
    return Succeeded(rc != ERROR_SUCCESS ? rc : CopyName(displayName, lpDisplayName, lpcchBuffer));
}

BOOL GetServiceKeyNameA(SC_HANDLE hSCManager, LPCSTR lpDisplayName, LPSTR lpServiceName, LPDWORD lpcchBuffer) {
    if (lpDisplayName == nullptr || lpcchBuffer == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    std::string name;
    const DWORD rc = QueryKeyName(hSCManager, lpDisplayName, &name);
    return Succeeded(rc != ERROR_SUCCESS ? rc : CopyName(name, lpServiceName, lpcchBuffer));
}
