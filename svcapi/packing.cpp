// SPDX-License-Identifier: MIT
// packing: records in front, strings behind.
#include "svcapi/packing.h"

#include "svcapi/text_behind.h"
#include "util/string_list.h"

namespace {

void PutStatus(const ListedService &service, ENUM_SERVICE_STATUSA *record) { record->ServiceStatus = service.status; }
void PutStatus(const ListedService &service, ENUM_SERVICE_STATUSW *record) { record->ServiceStatus = service.status; }
void PutStatus(const ListedService &service, ENUM_SERVICE_STATUS_PROCESSA *record) {
    record->ServiceStatusProcess = WithProcess(service.status, service.processId);
}
void PutStatus(const ListedService &service, ENUM_SERVICE_STATUS_PROCESSW *record) {
    record->ServiceStatusProcess = WithProcess(service.status, service.processId);
}

} // namespace

SERVICE_STATUS_PROCESS WithProcess(const SERVICE_STATUS &status, DWORD processId) {
    constexpr DWORD noFlags = 0;
    return {status.dwServiceType,
            status.dwCurrentState,
            status.dwControlsAccepted,
            status.dwWin32ExitCode,
            status.dwServiceSpecificExitCode,
            status.dwCheckPoint,
            status.dwWaitHint,
            processId,
            noFlags};
}

template <typename Record>
DWORD PackServices(const std::vector<ListedService> &services, std::size_t first, Record *buffer, DWORD bytes,
                   DWORD *bytesNeeded, DWORD *returned) {
    using Char = CharOf<decltype(Record::lpServiceName)>;
    std::size_t total = 0;
    std::size_t end = first;
    for (std::size_t i = first; i < services.size(); ++i) {
        total += sizeof(Record) + TextBytes<Char>(services[i].name) + TextBytes<Char>(services[i].displayName);
        if (total <= bytes) end = i + 1;
    }
    const std::size_t fitting = end - first;
    Char *strings = reinterpret_cast<Char *>(buffer + fitting);
    for (std::size_t i = 0; i < fitting; ++i) {
        const ListedService &service = services[first + i];
        buffer[i].lpServiceName = PutText(service.name, &strings);
        buffer[i].lpDisplayName = PutText(service.displayName, &strings);
        PutStatus(service, &buffer[i]);
    }
    *returned = static_cast<DWORD>(fitting);
    *bytesNeeded = end < services.size() ? static_cast<DWORD>(total) : 0;
    return end < services.size() ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

template DWORD PackServices(const std::vector<ListedService> &, std::size_t, ENUM_SERVICE_STATUSA *, DWORD, DWORD *,
                            DWORD *);
template DWORD PackServices(const std::vector<ListedService> &, std::size_t, ENUM_SERVICE_STATUSW *, DWORD, DWORD *,
                            DWORD *);
template DWORD PackServices(const std::vector<ListedService> &, std::size_t, ENUM_SERVICE_STATUS_PROCESSA *, DWORD,
                            DWORD *, DWORD *);
template DWORD PackServices(const std::vector<ListedService> &, std::size_t, ENUM_SERVICE_STATUS_PROCESSW *, DWORD,
                            DWORD *, DWORD *);

template <typename Record>
DWORD PackConfig(const ServiceConfig &config, Record *buffer, DWORD bytes, DWORD *bytesNeeded) {
    using Char = CharOf<decltype(Record::lpBinaryPathName)>;
    const std::string dependencies = JoinMultiString(config.dependencies);
    *bytesNeeded = static_cast<DWORD>(sizeof *buffer + TextBytes<Char>(config.imagePath) +
                                      TextBytes<Char>(config.group) + TextBytes<Char>(dependencies) +
                                      TextBytes<Char>(config.account) + TextBytes<Char>(config.displayName));
    if (bytes < *bytesNeeded) return ERROR_INSUFFICIENT_BUFFER;
    Char *strings = reinterpret_cast<Char *>(buffer + 1);
    buffer->dwServiceType = config.type;
    buffer->dwStartType = config.startType;
    buffer->dwErrorControl = config.errorControl;
    buffer->dwTagId = config.tag;
    buffer->lpBinaryPathName = PutText(config.imagePath, &strings);
    buffer->lpLoadOrderGroup = PutText(config.group, &strings);
    buffer->lpDependencies = PutText(dependencies, &strings);
    buffer->lpServiceStartName = PutText(config.account, &strings);
    buffer->lpDisplayName = PutText(config.displayName, &strings);
    return ERROR_SUCCESS;
}

template DWORD PackConfig(const ServiceConfig &, QUERY_SERVICE_CONFIGA *, DWORD, DWORD *);
template DWORD PackConfig(const ServiceConfig &, QUERY_SERVICE_CONFIGW *, DWORD, DWORD *);

template <typename Record>
DWORD PackLockStatus(const LockStatus &status, Record *buffer, DWORD bytes, DWORD *bytesNeeded) {
    using Char = CharOf<decltype(Record::lpLockOwner)>;
    *bytesNeeded = static_cast<DWORD>(sizeof *buffer + TextBytes<Char>(status.owner));
    if (bytes < *bytesNeeded) return ERROR_INSUFFICIENT_BUFFER;
    Char *strings = reinterpret_cast<Char *>(buffer + 1);
    buffer->fIsLocked = status.locked ? TRUE : FALSE;
    buffer->lpLockOwner = PutText(status.owner, &strings);
    buffer->dwLockDuration = status.durationSec;
    return ERROR_SUCCESS;
}

template DWORD PackLockStatus(const LockStatus &, QUERY_SERVICE_LOCK_STATUSA *, DWORD, DWORD *);
template DWORD PackLockStatus(const LockStatus &, QUERY_SERVICE_LOCK_STATUSW *, DWORD, DWORD *);
