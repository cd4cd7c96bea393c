// SPDX-License-Identifier: MIT
// packing: records in front, strings behind.
#include "svcapi/packing.h"

#include "svcapi/text_behind.h"
#include "util/string_list.h"

#include <algorithm>

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

using Place = ServiceList::Place;

void PutStatus(const Place &place, SERVICE_STATUS *status) { *status = place.status; }
void PutStatus(const Place &place, SERVICE_STATUS_PROCESS *status) {
    *status = WithProcess(place.status, place.processId);
}
template <typename Record>
auto *StatusIn(Record *record) {
    if constexpr (requires { record->ServiceStatusProcess; }) {
        return &record->ServiceStatusProcess;
    } else {
        return &record->ServiceStatus;
    }
}

// Both texts of a service in the characters of a record, which may be those that they have.
template <typename Char>
auto TextsAs(const ServiceList &services, const Place &place) {
    if constexpr (sizeof(Char) == 1) {
        return TextsIn(services, place);
    } else {
        return Widened(TextsIn(services, place));
    }
}

std::size_t NameLength(std::string_view /*texts*/, const Place &place) { return place.nameBytes; }
std::size_t NameLength(std::u16string_view texts, const Place & /*place*/) { return texts.find(u'\0'); }

} // namespace

template <typename Record>
DWORD PackServices(const ServiceList &services, std::size_t first, Record *buffer, DWORD bytes, DWORD *bytesNeeded,
                   DWORD *returned) {
    using Char = CharOf<decltype(Record::lpServiceName)>;
    const auto *const begin = services.places.data() + first;
    const auto *const end = services.places.data() + services.places.size();
    std::size_t allBytes = 0, fittingBytes = 0;
    const Place *fittingEnd = begin;
    for (const Place *place = begin; place != end; ++place) {
        allBytes += sizeof(Record) + TextsAs<Char>(services, *place).size() * sizeof(Char);
        if (allBytes > bytes) continue;
        fittingBytes = allBytes;
        fittingEnd = place + 1;
    }
    Char *text = reinterpret_cast<Char *>(reinterpret_cast<char *>(buffer) + fittingBytes);
    Record *record = buffer;
    for (const Place *place = begin; place != fittingEnd; ++place, ++record) {
        const auto texts = TextsAs<Char>(services, *place);
        text -= texts.size();
        std::copy(texts.begin(), texts.end(), text);
        record->lpServiceName = text;
        record->lpDisplayName = text + NameLength(texts, *place) + 1;
        PutStatus(*place, StatusIn(record));
    }
    *returned = static_cast<DWORD>(fittingEnd - begin);
    const bool isAll = fittingEnd == end;
    *bytesNeeded = isAll ? 0 : static_cast<DWORD>(allBytes);
    return isAll ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

#define INSTANTIATE(Record)                                                                                            \
    template DWORD PackServices(const ServiceList &, std::size_t, Record *, DWORD, DWORD *, DWORD *);
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
