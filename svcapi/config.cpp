// SPDX-License-Identifier: MIT
// config: reading and changing a service's configuration.
#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
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

} // namespace

DWORD QueryConfig(SC_HANDLE service, ServiceConfig *config) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : ReadConfig(*call.handle->link, call.handle->index, call.handle->name, config);
}

BOOL QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryConfig, PackConfig, hService, lpServiceConfig, cbBufSize, pcbBytesNeeded);
}

BOOL QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    return AnswerIntoBuffer(QueryConfig, PackConfig, hService, lpServiceConfig, cbBufSize, pcbBytesNeeded);
}

BOOL ChangeServiceConfigA(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCSTR lpDependencies,
                          LPCSTR lpServiceStartName, LPCSTR, LPCSTR lpDisplayName) {
    if (!CanBeLoaded(lpBinaryPathName) || !CanBeLoaded(lpLoadOrderGroup)) return Succeeded(ERROR_INVALID_PARAMETER);
    if (!CanBeLoaded(lpDisplayName)) return Succeeded(ERROR_INVALID_NAME);
    HandleCall call;
    DWORD rc = BeginServiceCall(hService, &call);
    if (rc == ERROR_SUCCESS && dwErrorControl == SERVICE_NO_CHANGE) {
        // The daemon would write the number for "no change" like any other.
        ServiceConfig present;
        rc = ReadConfig(*call.handle->link, call.handle->index, call.handle->name, &present);
        dwErrorControl = present.errorControl;
    }
    if (rc != ERROR_SUCCESS) return Succeeded(rc);
    CharArray dependencies = {};
    if (lpDependencies != nullptr) {
        dependencies = {static_cast<std::uint32_t>(MultiStringBytes(lpDependencies)), Borrowed(lpDependencies)};
    }
    const servd_SERV_CHANGE_CONFIG_SERVICE change = {call.handle->index,
                                                     dwServiceType,
                                                     dwStartType,
                                                     dwErrorControl,
                                                     Field(lpBinaryPathName),
                                                     Field(lpLoadOrderGroup),
                                                     dependencies,
                                                     Field(lpServiceStartName),
                                                     {},
                                                     Field(lpDisplayName),
                                                     lpdwTagId != nullptr ? 1 : 0};
    rc = ChangeRecordConfig(*call.handle->link, change, lpdwTagId);
    if (rc == ERROR_SUCCESS && lpServiceStartName != nullptr && IsThisMachine(call.handle->link->host)) {
        (void)PrepareServiceFiles(call.handle->name, lpServiceStartName); // less is told and logged where they cannot
    }
    return Succeeded(rc);
}
