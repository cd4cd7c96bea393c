// SPDX-License-Identifier: MIT
// config: reading and changing a service's configuration.
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/limits.h"
#include "svcapi/listing.h"
#include "util/multi_string.h"
#include "util/string_list.h"

#include <cstring>

namespace {

// A string as a counted field: null is "no change", a count of 0.
CharArray Field(const char *text) {
    return text != nullptr ? CharArray{static_cast<std::uint32_t>(std::strlen(text)) + 1, Borrowed(text)} : CharArray{};
}

DWORD ChangeConfig(DaemonLink &link, servd_SERV_CHANGE_CONFIG_SERVICE *argument, LPDWORD tag) {
    servd_SERV_CHANGE_CONFIG_SERVICE_RETURN answer = {};
    const DWORD rc = CallDaemon(link, CHANGE_CONFIG_SERVICE, xdr_servd_SERV_CHANGE_CONFIG_SERVICE, argument,
                                xdr_servd_SERV_CHANGE_CONFIG_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    if (answer.status == ERROR_SUCCESS && tag != nullptr) *tag = static_cast<DWORD>(answer.tag);
    return AsCode(answer.status);
}

// The daemon answers a configuration in which nothing is set when the registry does not answer it.
bool IsOfNothing(const ServiceConfig &config) {
    return config.imagePath.empty() && config.startType == 0 && config.errorControl == 0 && config.group.empty() &&
           config.dependencies.empty() && config.account.empty();
}

// The dependencies come from the registry too, and the daemon says so when it cannot read them.
DWORD WhyOfNothing(DaemonLink &link, std::int32_t index) {
    std::vector<ListedService> dependencies;
    const DWORD rc = ListDependencies(link, index, SERVICE_STATE_ALL, &dependencies);
    return rc == ERROR_REGISTRY_IO_FAILED || rc == RPC_S_CALL_FAILED || rc == ERROR_TIMEOUT ? rc : ERROR_SUCCESS;
}

} // namespace

DWORD ReadConfig(DaemonLink &link, std::int32_t index, const std::string &name, ServiceConfig *config) {
    servd_SERV_QUERY_CONFIG_SERVICE argument = {index};
    servd_SERV_QUERY_CONFIG_SERVICE_RETURN answer = {};
    const AnswerGuard<servd_SERV_QUERY_CONFIG_SERVICE_RETURN, xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN> release(
        &answer);
    DWORD rc = CallDaemon(link, QUERY_CONFIG_SERVICE, xdr_servd_SERV_QUERY_CONFIG_SERVICE, &argument,
                          xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN, &answer);
    if (rc != ERROR_SUCCESS) return rc;
    if (answer.status != ERROR_SUCCESS) {
        // After anybody's query with a bad handle the daemon says 6 with every good answer too. A bad handle answers
        // with the configuration asked for last, so the display name tells the two apart.
        std::string displayName;
        rc = DisplayNameOf(link, name.c_str(), &displayName);
        if (rc != ERROR_SUCCESS) return rc;
        if (answer.status != ERROR_INVALID_HANDLE || displayName != answer.displayName) return AsCode(answer.status);
    }
    *config = {answer.serviceType,
               answer.startType,
               answer.errorControl,
               answer.imagePath,
               answer.group,
               static_cast<DWORD>(answer.tag),
               SplitMultiString({answer.dependencies.chars, answer.dependencies.count}),
               answer.account,
               answer.displayName};
    return IsOfNothing(*config) ? WhyOfNothing(link, index) : ERROR_SUCCESS;
}

DWORD QueryConfig(SC_HANDLE service, ServiceConfig *config) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : ReadConfig(*call.handle->link, call.handle->index, call.handle->name, config);
}

BOOL QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded) {
    if (pcbBytesNeeded == nullptr || (lpServiceConfig == nullptr && cbBufSize != 0)) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    ServiceConfig config;
    const DWORD rc = QueryConfig(hService, &config);
    return Succeeded(rc != ERROR_SUCCESS ? rc : PackConfig(config, lpServiceConfig, cbBufSize, pcbBytesNeeded));
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
    servd_SERV_CHANGE_CONFIG_SERVICE argument = {call.handle->index,
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
    return Succeeded(ChangeConfig(*call.handle->link, &argument, lpdwTagId));
}
