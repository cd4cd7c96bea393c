// SPDX-License-Identifier: MIT
// process_status: what is told and asked with a process id.
#include "svcapi/process_status.h"

#include "svcapi/handles.h"
#include "svcapi/last_error.h"
#include "svcapi/packing.h"
#include "svcapi/pid_file.h"
#include "svcapi/wide.h"

namespace {

constexpr std::size_t mostCommentBytes = 127;
constexpr DWORD reasonKinds =
    SERVICE_STOP_REASON_FLAG_UNPLANNED | SERVICE_STOP_REASON_FLAG_CUSTOM | SERVICE_STOP_REASON_FLAG_PLANNED;

// Names the process of a service that is open.
SERVICE_STATUS_PROCESS NameProcess(SC_HANDLE service, const SERVICE_STATUS &status) {
    const std::shared_ptr<OpenHandle> handle = FindHandle(service, HandleKind::service);
    return WithProcess(status, handle != nullptr ? ProcessOf(*handle->link, handle->name, status) : 0);
}

// A planned or an unplanned stop, of the known reasons or of the caller's.
bool IsStopReason(DWORD reason) {
    const DWORD kind = reason & reasonKinds & ~DWORD{SERVICE_STOP_REASON_FLAG_CUSTOM};
    return (kind == SERVICE_STOP_REASON_FLAG_UNPLANNED || kind == SERVICE_STOP_REASON_FLAG_PLANNED) &&
           (reason & 0x00FF0000) != 0 && (reason & 0xFFFF) != 0;
}

// The two records differ in the comment's type.
template <typename Params>
BOOL ControlWithReason(SC_HANDLE service, DWORD control, DWORD level, Params *params, LPCSTR comment) {
    if (level != SERVICE_CONTROL_STATUS_REASON_INFO) return Succeeded(ERROR_INVALID_LEVEL);
    if ((control == SERVICE_CONTROL_STOP && !IsStopReason(params->dwReason)) ||
        (comment != nullptr && std::string_view(comment).size() > mostCommentBytes)) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    SERVICE_STATUS status = {};
    const BOOL done = ControlService(service, control, &status);
    params->ServiceStatus = NameProcess(service, status);
    return done;
}

} // namespace

DWORD ProcessOf(const DaemonLink &link, const std::string &name, const SERVICE_STATUS &status) {
    if (status.dwCurrentState == SERVICE_STOPPED || !IsThisMachine(link.host)) return 0;
    return static_cast<DWORD>(ReadPidFile(name));
}

BOOL QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded) {
    if (InfoLevel != SC_STATUS_PROCESS_INFO) return Succeeded(ERROR_INVALID_LEVEL);
    if (pcbBytesNeeded == nullptr || (lpBuffer == nullptr && cbBufSize != 0)) {
        return Succeeded(ERROR_INVALID_PARAMETER);
    }
    *pcbBytesNeeded = sizeof(SERVICE_STATUS_PROCESS);
    if (cbBufSize < sizeof(SERVICE_STATUS_PROCESS)) return Succeeded(ERROR_INSUFFICIENT_BUFFER);
    SERVICE_STATUS status = {};
    if (!QueryServiceStatus(hService, &status)) return FALSE;
    *reinterpret_cast<SERVICE_STATUS_PROCESS *>(lpBuffer) = NameProcess(hService, status);
    return TRUE;
}

BOOL ControlServiceExA(SC_HANDLE hService, DWORD dwControl, DWORD dwInfoLevel, LPVOID pControlParams) {
    auto *const params = static_cast<SERVICE_CONTROL_STATUS_REASON_PARAMSA *>(pControlParams);
    if (params == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    return ControlWithReason(hService, dwControl, dwInfoLevel, params, params->pszComment);
}

BOOL ControlServiceExW(SC_HANDLE hService, DWORD dwControl, DWORD dwInfoLevel, LPVOID pControlParams) {
    auto *const params = static_cast<SERVICE_CONTROL_STATUS_REASON_PARAMSW *>(pControlParams);
    if (params == nullptr) return Succeeded(ERROR_INVALID_PARAMETER);
    NarrowArguments narrow;
    const LPCSTR comment = Narrow(&narrow, params->pszComment);
    if (narrow.code != ERROR_SUCCESS) return Succeeded(narrow.code);
    return ControlWithReason(hService, dwControl, dwInfoLevel, params, comment);
}
