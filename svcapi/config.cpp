// SPDX-License-Identifier: MIT
// config: reading and changing a service's configuration.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/image_path.h"
#include "svcapi/last_error.h"
#include "svcapi/limits.h"
#include "svcapi/listing.h"
#include "svcapi/query.h"
#include "svcapi/service_files.h"
#include "util/multi_string.h"

#include <cstring>

namespace {

// A string as a counted field: null is "no change", a count of 0.
CharArray Field(const char *text) {
    return text != nullptr ? CharArray{static_cast<std::uint32_t>(std::strlen(text)) + 1, Borrowed(text)} : CharArray{};
}

// The configuration as it was given to the API.
DWORD QueryGivenConfig(SC_HANDLE service, ServiceConfig *config) {
    HandleCall call;
    DWORD rc = BeginServiceCall(service, &call);
    if (rc != ERROR_SUCCESS) return rc;
    rc = ReadConfig(*call.handle->link, call.handle->index, call.handle->name, config);
    config->imagePath = GivenImagePath(*call.handle->link, call.handle->name, config->imagePath);
    return rc;
}

// What a change of the image path begins from, and comes to.
struct ImageChange {
    std::string before; // the daemon's path
    PlannedImage image;
};

// The record that changes the image path alone.
servd_SERV_CHANGE_CONFIG_SERVICE ImagePathChange(std::int32_t index, DWORD errorControl, const std::string &path) {
    servd_SERV_CHANGE_CONFIG_SERVICE change = {};
    change.handle = index;
    change.serviceType = change.startType = SERVICE_NO_CHANGE;
    change.errorControl = errorControl;
    change.imagePath = Field(path.c_str());
    return change;
}

// Brings the launcher in line with a path that the daemon has taken; where it cannot be written, the path is the old
// one again.
DWORD FinishImageChange(DaemonLink &link, const OpenHandle &service, DWORD errorControl, const ImageChange &change) {
    const DWORD rc = WriteImage(service.name, change.image);
    if (rc != ERROR_SUCCESS) {
        (void)ChangeRecordConfig(link, ImagePathChange(service.index, errorControl, change.before), nullptr);
    } else if (change.before == LauncherPath(service.name) && change.image.path != change.before) {
        RemoveUnusedLauncher(link, service.name);
    }
    return rc;
}

} // namespace

DWORD QueryConfig(SC_HANDLE service, ServiceConfig *config) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : ReadConfig(*call.handle->link, call.handle->index, call.handle->name, config);
}

DWORD QueryLauncherUser(SC_HANDLE manager, const std::string &name, std::optional<std::string> *user) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : FindLauncherUser(*call.handle->link, name, user);
}

BOOL QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryGivenConfig, PackConfig, hService, lpServiceConfig, cbBufSize, pcbBytesNeeded);
}

BOOL QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryGivenConfig, PackConfig, hService, lpServiceConfig, cbBufSize, pcbBytesNeeded);
}

BOOL ChangeServiceConfigA(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCSTR lpDependencies,
                          LPCSTR lpServiceStartName, LPCSTR, LPCSTR lpDisplayName) {
    if (!CanBeLoaded(lpBinaryPathName) || !CanBeLoaded(lpLoadOrderGroup)) return Succeeded(ERROR_INVALID_PARAMETER);
    if (!CanBeLoaded(lpDisplayName)) return Succeeded(ERROR_INVALID_NAME);
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    ImageChange imageChange;
    if (rc == ERROR_SUCCESS && (dwErrorControl == SERVICE_NO_CHANGE || lpBinaryPathName != nullptr)) {
        ServiceConfig present;
        rc = ReadConfig(*call.handle->link, call.handle->index, call.handle->name, &present);
        // The daemon would write the number for "no change" like any other.
        if (dwErrorControl == SERVICE_NO_CHANGE) dwErrorControl = present.errorControl;
        imageChange.before = present.imagePath;
    }
    if (rc == ERROR_SUCCESS && lpBinaryPathName != nullptr) {
        rc = PlanImage(*call.handle->link, call.handle->name, lpBinaryPathName, &imageChange.image);
    }
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    CharArray dependencies = {};
    if (lpDependencies != nullptr) {
        dependencies = {static_cast<std::uint32_t>(MultiStringBytes(lpDependencies)), Borrowed(lpDependencies)};
    }
    const servd_SERV_CHANGE_CONFIG_SERVICE change = {
        call.handle->index,
        dwServiceType,
        dwStartType,
        dwErrorControl,
        Field(lpBinaryPathName != nullptr ? imageChange.image.path.c_str() : nullptr),
        Field(lpLoadOrderGroup),
        dependencies,
        Field(lpServiceStartName),
        {},
        Field(lpDisplayName),
        lpdwTagId != nullptr ? 1 : 0};
    rc = ChangeRecordConfig(*call.handle->link, change, lpdwTagId);
    if (rc == ERROR_SUCCESS && lpBinaryPathName != nullptr) {
        rc = FinishImageChange(*call.handle->link, *call.handle, dwErrorControl, imageChange);
    }
    if (rc == ERROR_SUCCESS && lpServiceStartName != nullptr && IsThisMachine(call.handle->link->host)) {
        (void)PrepareServiceFiles(call.handle->name, lpServiceStartName); // less is told and logged where they cannot
    }
    return Succeeded(rc);
}
