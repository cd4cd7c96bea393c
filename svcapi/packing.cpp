// SPDX-License-Identifier: MIT
// packing: records in front, strings behind.
#include "svcapi/packing.h"

#include "util/string_list.h"

#include <cstring>

namespace {

// Copies a string and its terminator to *end and moves *end behind it.
char *PutString(const std::string &text, char **end) {
    char *start = *end;
    std::memcpy(start, text.c_str(), text.size() + 1);
    *end += text.size() + 1;
    return start;
}

std::size_t PackedBytes(const ListedService &service) {
    return sizeof(ENUM_SERVICE_STATUSA) + service.name.size() + 1 + service.displayName.size() + 1;
}

} // namespace

DWORD PackServices(const std::vector<ListedService> &services, std::size_t first, ENUM_SERVICE_STATUSA *buffer,
                   DWORD bytes, DWORD *bytesNeeded, DWORD *returned) {
    std::size_t total = 0;
    std::size_t end = first;
    for (std::size_t i = first; i < services.size(); ++i) {
        total += PackedBytes(services[i]);
        if (total <= bytes) end = i + 1;
    }
    const std::size_t fitting = end - first;
    char *strings = reinterpret_cast<char *>(buffer + fitting);
    for (std::size_t i = 0; i < fitting; ++i) {
        const ListedService &service = services[first + i];
        buffer[i].lpServiceName = PutString(service.name, &strings);
        buffer[i].lpDisplayName = PutString(service.displayName, &strings);
        buffer[i].ServiceStatus = service.status;
    }
    *returned = static_cast<DWORD>(fitting);
    *bytesNeeded = end < services.size() ? static_cast<DWORD>(total) : 0;
    return end < services.size() ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

DWORD PackConfig(const ServiceConfig &config, QUERY_SERVICE_CONFIGA *buffer, DWORD bytes, DWORD *bytesNeeded) {
    const std::string dependencies = JoinMultiString(config.dependencies);
    *bytesNeeded =
        static_cast<DWORD>(sizeof *buffer + config.imagePath.size() + 1 + config.group.size() + 1 +
                           dependencies.size() + 1 + config.account.size() + 1 + config.displayName.size() + 1);
    if (bytes < *bytesNeeded) return ERROR_INSUFFICIENT_BUFFER;
    char *strings = reinterpret_cast<char *>(buffer + 1);
    buffer->dwServiceType = config.type;
    buffer->dwStartType = config.startType;
    buffer->dwErrorControl = config.errorControl;
    buffer->dwTagId = config.tag;
    buffer->lpBinaryPathName = PutString(config.imagePath, &strings);
    buffer->lpLoadOrderGroup = PutString(config.group, &strings);
    buffer->lpDependencies = PutString(dependencies, &strings);
    buffer->lpServiceStartName = PutString(config.account, &strings);
    buffer->lpDisplayName = PutString(config.displayName, &strings);
    return ERROR_SUCCESS;
}

DWORD PackLockStatus(const LockStatus &status, QUERY_SERVICE_LOCK_STATUSA *buffer, DWORD bytes, DWORD *bytesNeeded) {
    *bytesNeeded = static_cast<DWORD>(sizeof *buffer + status.owner.size() + 1);
    if (bytes < *bytesNeeded) return ERROR_INSUFFICIENT_BUFFER;
    char *strings = reinterpret_cast<char *>(buffer + 1);
    buffer->fIsLocked = status.locked ? TRUE : FALSE;
    buffer->lpLockOwner = PutString(status.owner, &strings);
    buffer->dwLockDuration = status.durationSec;
    return ERROR_SUCCESS;
}
