// SPDX-License-Identifier: MIT
// manager: opening the daemon, closing handles, and what is asked of the daemon itself.
#include "svcapi/calls.h"
#include "svcapi/handles.h"
#include "svcapi/image_path.h"
#include "svcapi/last_error.h"
#include "svcapi/status_notify.h"

#include <cstring>
#include <string_view>

namespace {

// Sources for Win32 write two backslashes before a machine's name.
std::string HostOf(LPCSTR machine) {
    std::string_view host = machine != nullptr ? machine : "";
    if (host.starts_with("\\\\")) host.remove_prefix(2);
    return std::string(host.empty() ? "localhost" : host);
}

DWORD OpenDaemon(LPCSTR machine, std::shared_ptr<DaemonLink> *link, DWORD *initCode) {
    *link = std::make_shared<DaemonLink>();
    (*link)->host = HostOf(machine);
    const std::lock_guard<std::timed_mutex> busy((*link)->busy);
    const DWORD rc = Connect(**link);
    return rc != ERROR_SUCCESS ? rc : AskInitCode(**link, initCode);
}

SC_HANDLE AddManager(std::shared_ptr<DaemonLink> link) {
    OpenHandle manager;
    manager.link = std::move(link);
    return static_cast<SC_HANDLE>(AddHandle(std::move(manager)));
}

DWORD CloseService(OpenHandle &service) {
    const std::lock_guard<std::timed_mutex> busy(service.link->busy);
    const DWORD rc = Connect(*service.link);
    if (rc != ERROR_SUCCESS) return rc;
    // A daemon that was restarted knows nothing of the handle.
    DWORD code = ERROR_SUCCESS;
    if (service.restarts == service.link->restarts) code = CloseRecord(*service.link, service.index);
    std::string displayName;
    if (service.isDeleted &&
        DisplayNameOf(*service.link, service.name.c_str(), &displayName) == ERROR_SERVICE_DOES_NOT_EXIST) {
        RemoveUnusedLauncher(*service.link, service.name);
    }
    return code;
}

} // namespace

SC_HANDLE tvOpenDaemon(LPCSTR host, LPDWORD initCode) {
    std::shared_ptr<DaemonLink> link;
    DWORD code = ERROR_SUCCESS;
    if (!Succeeded(OpenDaemon(host, &link, &code))) return nullptr;
    if (initCode != nullptr) *initCode = code;
    return AddManager(std::move(link));
}

SC_HANDLE OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD) {
    if (lpDatabaseName != nullptr && std::strcmp(lpDatabaseName, SERVICES_ACTIVE_DATABASEA) != 0) {
        SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    std::shared_ptr<DaemonLink> link;
    DWORD code = ERROR_SUCCESS;
    if (!Succeeded(OpenDaemon(lpMachineName, &link, &code)) || !Succeeded(code)) return nullptr;
    return AddManager(std::move(link));
}

BOOL CloseServiceHandle(SC_HANDLE hSCObject) {
    if (TakeHandle(hSCObject, HandleKind::manager) != nullptr) return TRUE;
    const std::shared_ptr<OpenHandle> service = TakeHandle(hSCObject, HandleKind::service);
    if (service == nullptr) return Succeeded(ERROR_INVALID_HANDLE);
    EndNotifications(hSCObject);
    return Succeeded(CloseService(*service));
}

BOOL tvSetCallTimeout(SC_HANDLE hSCObject, DWORD milliseconds) {
    if (hSCObject == nullptr) {
        SetFirstCallTimeout(std::chrono::milliseconds(milliseconds));
        return TRUE;
    }
    std::shared_ptr<OpenHandle> handle = FindHandle(hSCObject, HandleKind::manager);
    if (handle == nullptr) handle = FindHandle(hSCObject, HandleKind::service);
    if (handle == nullptr) return Succeeded(ERROR_INVALID_HANDLE);
    const std::lock_guard<std::timed_mutex> busy(handle->link->busy);
    handle->link->timeout = std::chrono::milliseconds(milliseconds);
    return TRUE;
}

BOOL tvPingDaemon(SC_HANDLE hSCManager) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(hSCManager, &call);
    return Succeeded(rc != ERROR_SUCCESS ? rc : PingDaemon(*call.handle->link));
}

BOOL tvStopDaemon(SC_HANDLE hSCManager) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(hSCManager, &call);
    return Succeeded(rc != ERROR_SUCCESS ? rc : StopDaemon(*call.handle->link));
}
