// SPDX-License-Identifier: MIT
// packing: records in front, strings behind.
#include "svcapi/packing.h"

#include "svcapi/text_behind.h"
#include "util/string_list.h"

namespace {

void PutStatus(const ListedView &service, ENUM_SERVICE_STATUSA *record) { record->ServiceStatus = service.status; }
void PutStatus(const ListedView &service, ENUM_SERVICE_STATUSW *record) { record->ServiceStatus = service.status; }
void PutStatus(const ListedView &service, ENUM_SERVICE_STATUS_PROCESSA *record) {
    record->ServiceStatusProcess = WithProcess(service.status, service.processId);
}
void PutStatus(const ListedView &service, ENUM_SERVICE_STATUS_PROCESSW *record) {
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

namespace {

// A text of the daemon's in the characters of a record, which may be those that it has.
template <typename Char>
auto AsCharacters(std::string_view text) {
    if constexpr (sizeof(Char) == 1) {
        return text;
    } else {
        return Widened(text);
    }
}

// A buffer of an odd size has a byte to spare where the texts are UTF-16.
template <typename Char, typename Record>
char *TextEnd(const ServicePacking<Record> &packing) {
    return reinterpret_cast<char *>(packing.buffer) + packing.bytes / sizeof(Char) * sizeof(Char);
}

} // namespace

template <typename Record>
void PackService(ServicePacking<Record> *packing, const ListedView &service) {
    using Char = CharOf<decltype(Record::lpServiceName)>;
    if (packing->skipped > 0) {
        --packing->skipped;
        return;
    }
    const auto name = AsCharacters<Char>(service.name);
    const auto displayName = AsCharacters<Char>(service.displayName);
    const std::size_t textBytes = (name.size() + 1 + displayName.size() + 1) * sizeof(Char);
    packing->allBytes += sizeof(Record) + textBytes;
    packing->isFull = packing->isFull || packing->allBytes > packing->bytes;
    if (packing->isFull) return;
    packing->textBytes += textBytes;
    Record &record = packing->buffer[packing->returned++];
    Char *strings = reinterpret_cast<Char *>(TextEnd<Char>(*packing) - packing->textBytes);
    record.lpServiceName = PutCharacters<Char>(name, &strings);
    record.lpDisplayName = PutCharacters<Char>(displayName, &strings);
    PutStatus(service, &record);
}

template <typename Record>
DWORD FinishPacking(ServicePacking<Record> *packing, DWORD *bytesNeeded, DWORD *returned) {
    using Char = CharOf<decltype(Record::lpServiceName)>;
    Record *const end = packing->buffer + packing->returned;
    char *const from = TextEnd<Char>(*packing) - packing->textBytes;
    const auto gap = static_cast<std::size_t>(from - reinterpret_cast<char *>(end)) / sizeof(Char);
    if (gap != 0 && packing->returned != 0) {
        std::memmove(end, from, packing->textBytes);
        for (Record *record = packing->buffer; record != end; ++record) {
            record->lpServiceName -= gap;
            record->lpDisplayName -= gap;
        }
    }
    *returned = packing->returned;
    *bytesNeeded = packing->isFull ? static_cast<DWORD>(packing->allBytes) : 0;
    return packing->isFull ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

#define INSTANTIATE(Record)                                                                                            \
    template void PackService(ServicePacking<Record> *, const ListedView &);                                           \
    template DWORD FinishPacking(ServicePacking<Record> *, DWORD *, DWORD *);
INSTANTIATE(ENUM_SERVICE_STATUSA)
INSTANTIATE(ENUM_SERVICE_STATUSW)
INSTANTIATE(ENUM_SERVICE_STATUS_PROCESSA)
INSTANTIATE(ENUM_SERVICE_STATUS_PROCESSW)
#undef INSTANTIATE

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
