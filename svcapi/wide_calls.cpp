// SPDX-License-Identifier: MIT
// wide_calls: the W functions that differ from their namesakes in their arguments alone.
#include "svcapi/last_error.h"
#include "svcapi/wide.h"

#include <vector>

namespace {

// Makes the call with converted arguments, unless one of them could not be.
template <typename Call>
SC_HANDLE OpenConverted(const NarrowArguments &narrow, Call call) {
    if (narrow.code == ERROR_SUCCESS) return call();
    SetLastError(narrow.code);
    return nullptr;
}

} // namespace

SC_HANDLE OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName, DWORD dwDesiredAccess) {
    NarrowArguments narrow;
    const LPCSTR machine = Narrow(&narrow, lpMachineName);
    const LPCSTR database = Narrow(&narrow, lpDatabaseName);
    return OpenConverted(narrow, [&] { return OpenSCManagerA(machine, database, dwDesiredAccess); });
}

SC_HANDLE OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess) {
    NarrowArguments narrow;
    const LPCSTR name = Narrow(&narrow, lpServiceName);
    return OpenConverted(narrow, [&] { return OpenServiceA(hSCManager, name, dwDesiredAccess); });
}

SC_HANDLE CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName, DWORD dwDesiredAccess,
                         DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                         LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                         LPCWSTR lpServiceStartName, LPCWSTR lpPassword) {
    NarrowArguments narrow;
    const LPCSTR name = Narrow(&narrow, lpServiceName);
    const LPCSTR displayName = Narrow(&narrow, lpDisplayName);
    const LPCSTR path = Narrow(&narrow, lpBinaryPathName);
    const LPCSTR group = Narrow(&narrow, lpLoadOrderGroup);
    const LPCSTR dependencies = NarrowMultiString(&narrow, lpDependencies);
    const LPCSTR account = Narrow(&narrow, lpServiceStartName);
    const LPCSTR password = Narrow(&narrow, lpPassword);
    return OpenConverted(narrow, [&] {
        return CreateServiceA(hSCManager, name, displayName, dwDesiredAccess, dwServiceType, dwStartType,
                              dwErrorControl, path, group, lpdwTagId, dependencies, account, password);
    });
}

BOOL ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCWSTR lpBinaryPathName, LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                          LPCWSTR lpServiceStartName, LPCWSTR lpPassword, LPCWSTR lpDisplayName) {
    NarrowArguments narrow;
    const LPCSTR path = Narrow(&narrow, lpBinaryPathName);
    const LPCSTR group = Narrow(&narrow, lpLoadOrderGroup);
    const LPCSTR dependencies = NarrowMultiString(&narrow, lpDependencies);
    const LPCSTR account = Narrow(&narrow, lpServiceStartName);
    const LPCSTR password = Narrow(&narrow, lpPassword);
    const LPCSTR displayName = Narrow(&narrow, lpDisplayName);
    if (narrow.code != ERROR_SUCCESS) return Succeeded(narrow.code);
    return ChangeServiceConfigA(hService, dwServiceType, dwStartType, dwErrorControl, path, group, lpdwTagId,
                                dependencies, account, password, displayName);
}

BOOL StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR *lpServiceArgVectors) {
    if (dwNumServiceArgs != 0 && lpServiceArgVectors == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    NarrowArguments narrow;
    std::vector<LPCSTR> arguments;
    for (DWORD i = 0; i < dwNumServiceArgs; ++i) {
        arguments.push_back(Narrow(&narrow, lpServiceArgVectors[i]));
    }
    return narrow.code != ERROR_SUCCESS ? Succeeded(narrow.code)
                                        : StartServiceA(hService, dwNumServiceArgs, arguments.data());
}
