// SPDX-License-Identifier: MIT
// service: opening, creating, deleting, starting and controlling one service; its status and its names.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/image_path.h"
#include "svcapi/last_error.h"
#include "svcapi/limits.h"
#include "svcapi/listing.h"
#include "svcapi/process_status.h"
#include "svcapi/service_files.h"
#include "svcapi/wide.h"
#include "util/multi_string.h"

#include <algorithm>
#include <cstring>

namespace {

SC_HANDLE AddService(const HandleCall &call, const char *name, std::int32_t index) {
    OpenHandle service;
    service.kind = HandleKind::service;
    service.link = call.handle->link;
    service.name = name;
    service.index = index;
    service.place = {.before = index - 1};
    service.restarts = service.link->restarts;
    return static_cast<SC_HANDLE>(AddHandle(std::move(service)));
}

DWORD PassiveStatus(DaemonLink &link, OpenHandle &service, SERVICE_STATUS *status, bool *complete) {
    std::optional<ListedService> listed;
    if (service.index != 0) { // record 0 is never listed
        const DWORD rc = FindListedService(link, service.name, &service.place, &listed);
        if (rc != ERROR_SUCCESS) return rc;
    }
    *complete = listed.has_value();
    if (!*complete) return PeekRecord(link, service.index, status);
    *status = listed->status;
    return ERROR_SUCCESS;
}

// Looks, and asks the daemon where that helps. The status ends up in the handle's watch. *listed: the enumeration has
// the service; may be null.
DWORD WatchedStatus(DaemonLink &link, OpenHandle &service, bool *listed = nullptr) {
    SERVICE_STATUS status = {};
    bool complete = false;
    DWORD rc = PassiveStatus(link, service, &status, &complete);
    if (rc != ERROR_SUCCESS) return rc;
    if (listed != nullptr) *listed = complete;
    NoteLook(&service.watch, status, complete, CallClock::now());
    if (!IsAskingUseful(service.watch, CallClock::now())) return ERROR_SUCCESS;
    rc = QueryRecordStatus(link, service.index, &status);
    if (rc == ERROR_SUCCESS) NoteLook(&service.watch, status, true, CallClock::now());
    return rc;
}

// Whether a service that is not listed is marked for deletion: the one in record 0 never is listed, but can be opened.
DWORD AskIfMarked(DaemonLink &link, const OpenHandle &service, bool *marked) {
    *marked = true;
    if (service.index != 0) return ERROR_SUCCESS;
    std::int32_t index = 0;
    const DWORD rc = OpenRecord(link, service.name.c_str(), &index);
    if (rc == ERROR_SERVICE_DOES_NOT_EXIST) return ERROR_SUCCESS;
    *marked = false;
    return rc != ERROR_SUCCESS ? rc : CloseRecord(link, index);
}

// Asks for one name of a service by the other, and hands it out under the rules of the name calls.
template <typename Char>
BOOL TranslateName(decltype(QueryKeyName) *translate, SC_HANDLE manager, LPCSTR name, Char *buffer, LPDWORD chars) {
    if (name == nullptr || chars == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    std::string otherName;
    const DWORD rc = translate(manager, name, &otherName);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    const std::basic_string<Char> text = InCharacters<Char>(otherName);
    const DWORD room = *chars;
    *chars = static_cast<DWORD>(text.size());
    if (buffer == nullptr || room <= text.size()) return Succeeded(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, text.c_str(), (text.size() + 1) * sizeof(Char));
    return TRUE;
}

BOOL TranslateName(decltype(QueryKeyName) *translate, SC_HANDLE manager, LPCWSTR name, LPWSTR buffer, LPDWORD chars) {
    NarrowArguments narrow;
    const LPCSTR bytes = Narrow(&narrow, name);
    if (narrow.code != ERROR_SUCCESS) return Succeeded(narrow.code);
    return TranslateName(translate, manager, bytes, buffer, chars);
}

} // namespace

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
    DaemonLink &link = *call.handle->link;
    PlannedImage image;
    if (!Succeeded(PlanImage(link, lpServiceName, lpBinaryPathName, &image))) return nullptr;
    // One lone terminator means no dependencies; a count of 0 would not say so.
    const char *dependencies = lpDependencies != nullptr ? lpDependencies : "";
    const servd_SERV_CREATE_SERVICE service = {
        Borrowed(lpServiceName),
        Borrowed(lpDisplayName != nullptr ? lpDisplayName : lpServiceName),
        dwServiceType,
        dwStartType,
        dwErrorControl,
        Borrowed(image.path.c_str()),
        Borrowed(hasGroup ? lpLoadOrderGroup : ""),
        {static_cast<std::uint32_t>(MultiStringBytes(dependencies)), Borrowed(dependencies)},
        Borrowed(lpServiceStartName != nullptr ? lpServiceStartName : ""),
        lpdwTagId != nullptr ? 1 : 0};
    std::int32_t index = 0;
    DWORD tag = 0;
    if (!Succeeded(CreateRecord(link, service, &index, &tag))) return nullptr;
    // Only now: another service of this name would have lost what it runs.
    if (!Succeeded(WriteImage(lpServiceName, image))) {
        (void)DeleteRecord(link, index); // half a service is none
        (void)CloseRecord(link, index);
        return nullptr;
    }
    if (lpdwTagId != nullptr) *lpdwTagId = tag; // else it is the tag of somebody's earlier create
    if (lpServiceStartName != nullptr && IsThisMachine(link.host)) {
        (void)PrepareServiceFiles(lpServiceName, lpServiceStartName); // less is told and logged where they cannot
    }
    return AddService(call, lpServiceName, index);
}

DWORD WithdrawService(SC_HANDLE service) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : DeleteRecord(*call.handle->link, call.handle->index);
}

BOOL DeleteService(SC_HANDLE hService) {
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc == ERROR_SUCCESS) rc = DeleteRecord(*call.handle->link, call.handle->index);
    if (rc == ERROR_SUCCESS) call.handle->isDeleted = true;
    return Succeeded(rc);
}

BOOL StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors) {
    if (dwNumServiceArgs != 0 && lpServiceArgVectors == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    rc = StartRecord(*call.handle->link, call.handle->index, dwNumServiceArgs, lpServiceArgVectors);
    if (rc == ERROR_SUCCESS) NoteStart(&call.handle->watch, CallClock::now());
    return Succeeded(rc);
}

BOOL ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus) {
    if (lpServiceStatus == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    *lpServiceStatus = {};
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    const auto control = static_cast<std::int32_t>(dwControl);
    rc = ControlRecord(*call.handle->link, call.handle->index, control, lpServiceStatus);
    if (rc == ERROR_SUCCESS) NoteControlAnswer(&call.handle->watch, *lpServiceStatus, CallClock::now());
    return Succeeded(rc);
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
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc == ERROR_SUCCESS) rc = WatchedStatus(*call.handle->link, *call.handle);
    if (rc == ERROR_SUCCESS) *lpServiceStatus = call.handle->watch.status;
    return Succeeded(rc);
}

DWORD WatchService(SC_HANDLE service, SERVICE_STATUS_PROCESS *status, bool *marked) {
    HandleCall call;
    bool listed = false;
    DWORD rc = BeginServiceCall(service, &call);
    if (rc == ERROR_SUCCESS) rc = WatchedStatus(*call.handle->link, *call.handle, &listed);
    if (rc == ERROR_SUCCESS && !listed) rc = AskIfMarked(*call.handle->link, *call.handle, marked);
    if (rc != ERROR_SUCCESS) return rc;
    const SERVICE_STATUS &seen = call.handle->watch.status;
    *status = WithProcess(seen, ProcessOf(*call.handle->link, call.handle->name, seen));
    return ERROR_SUCCESS;
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
    return TranslateName(QueryDisplayName, hSCManager, lpServiceName, lpDisplayName, lpcchBuffer);
}

BOOL GetServiceDisplayNameW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPWSTR lpDisplayName, LPDWORD lpcchBuffer) {
    return TranslateName(QueryDisplayName, hSCManager, lpServiceName, lpDisplayName, lpcchBuffer);
}

BOOL GetServiceKeyNameA(SC_HANDLE hSCManager, LPCSTR lpDisplayName, LPSTR lpServiceName, LPDWORD lpcchBuffer) {
    return TranslateName(QueryKeyName, hSCManager, lpDisplayName, lpServiceName, lpcchBuffer);
}

BOOL GetServiceKeyNameW(SC_HANDLE hSCManager, LPCWSTR lpDisplayName, LPWSTR lpServiceName, LPDWORD lpcchBuffer) {
    return TranslateName(QueryKeyName, hSCManager, lpDisplayName, lpServiceName, lpcchBuffer);
}
