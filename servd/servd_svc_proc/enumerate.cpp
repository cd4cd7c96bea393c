// SPDX-License-Identifier: MIT
// enumerate: the procedures that list services and translate between key names and display names.
//
// Sizes are counted as a Win32 caller's buffer would fill: both names with their terminators and a fixed part, each
// service (ListedNames::recordBytes).
// Owns:    the lists and names in the static results, each until the next call of its handler. The list of the status
//          enumeration is encoded out of svcdb at once: whatever is made of a service on the way costs as much again.
// Thread:  main thread only.
// Deliberate: the status enumeration never lists record 0, and the name look-ups find services marked for deletion.
#include "servd/servd_svc_proc/handlers.h"

#include "servd/checked_memory.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/servd_svc_proc/word_sum.h"
#include "servd/service_keys.h"
#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <algorithm>
#include <cstring>

namespace {

bool PassesTypeFilter(std::int32_t type, std::int32_t filter) {
    if ((filter & SERVICE_WIN32) != 0) return (type & SERVICE_WIN32) != 0;
    if ((filter & SERVICE_DRIVER) == 0) return false;
    // Deliberate: a recogniser driver (8) alone is asked for like any driver, but never found.
    return (type & (SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER)) != 0;
}

bool PassesStateFilter(std::int32_t state, std::int32_t filter) {
    if (state == SERVICE_STOPPED) return (filter & SERVICE_INACTIVE) != 0;
    return state >= SERVICE_START_PENDING && state <= SERVICE_PAUSED && (filter & SERVICE_ACTIVE) != 0;
}

bool IsListed(const ServiceDatabaseEntry &entry, const servd_SERV_ENUM_STATUS_SERVICE &wanted) {
    return entry.name != nullptr && entry.deletePending == 0 && PassesTypeFilter(entry.type, wanted.typeFilter) &&
           PassesStateFilter(entry.status.dwCurrentState, wanted.stateFilter);
}

// Encodes a service behind those that the answer has.
void AppendService(const ListedNames &names, const svd_status_t &status, EncodedEnumeration *answer) {
    const std::size_t bytes = (names.wordCount + listedStatusWords) * BYTES_PER_XDR_UNIT;
    if (answer->roomBytes - answer->serviceBytes < bytes) {
        answer->roomBytes = std::max(answer->roomBytes * 2, answer->serviceBytes + bytes);
        answer->services = static_cast<char *>(CheckedRealloc(answer->services, answer->roomBytes));
    }
    auto *const at = reinterpret_cast<std::uint32_t *>(answer->services + answer->serviceBytes);
    std::memcpy(at, names.words, std::size_t{names.wordCount} * BYTES_PER_XDR_UNIT);
    (void)PutListedStatus(at + names.wordCount, status);
    answer->serviceBytes += bytes;
}

// Fills the answer with the services that the client wants, from the one after the first `resumeIndex` of them on, as
// far as they fit; bytesNeeded is the size of those that do not. Deliberate: the code is 0 even then. The resume index
// counts matching services; it is 0 when all fitted, and also when not even the first one did.
void ListServices(const servd_SERV_ENUM_STATUS_SERVICE &wanted, EncodedEnumeration *answer) {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN *const reply = &answer->words;
    std::int32_t remaining = wanted.bufferBytes;
    std::int32_t matched = 0;
    bool overflowed = false;
    for (std::int32_t index = 1; index < svcdbsize; ++index) {
        const ServiceDatabaseEntry &entry = svcdb[index];
        if (!IsListed(entry, wanted)) continue;
        matched += 1;
        if (matched <= wanted.resumeIndex) continue;
        const std::int32_t recordBytes = svcnames[index].recordBytes;
        if (recordBytes > remaining) {
            if (!overflowed) reply->resumeIndex = matched - 1;
            overflowed = true;
            reply->bytesNeeded = WordSum(reply->bytesNeeded, recordBytes);
            remaining = 0; // nothing after it is listed either
            continue;
        }
        remaining -= recordBytes;
        reply->servicesReturned += 1;
        AppendService(svcnames[index], entry.status, answer);
    }
}

// Whether the service names dependencies at all. Returns 0 and *named; or the code of the registry call that failed.
Win32Code NamesDependencies(HKEY service, bool *named) {
    DWORD bytes = 0;
    const Win32Code rc = QueryValueSize(service, dependenciesValue, &bytes);
    *named = rc == ERROR_SUCCESS && bytes != 0;
    return rc == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : rc;
}

// Lists the services that svcdb[handle] depends on, directly or through others: deliberate, Win32 names the opposite
// direction so.
Win32Code ListDependencies(const servd_SERV_ENUM_DEPEND_SERVICE &wanted, servd_SERV_ENUM_DEPEND_SERVICE_RETURN *reply) {
    if (wanted.handle < 0 || wanted.handle >= svcdbsize) return ERROR_INVALID_HANDLE; // 6
    const char *name = svcdb[wanted.handle].name;
    if (name == nullptr) return ERROR_SUCCESS; // deliberate: a free record depends on nothing
    HKEY services = 0;
    HKEY service = 0;
    OpenServiceKeys(name, &services, &service); // the query tells when there is no key
    const KeyGuard closeServices(&services);
    const KeyGuard closeService(&service);

    bool named = false;
    Win32Code rc = NamesDependencies(service, &named);
    if (rc != ERROR_SUCCESS || !named) return rc;
    std::int32_t room = wanted.bufferBytes;
    rc = CalculateDependencies(wanted.handle, &room, &reply->services, &reply->bytesNeeded, &reply->servicesReturned,
                               wanted.handle, services, wanted.stateFilter);
    ClearVisitingFlags();
    // The walk answers for its root alone; that a service below it did not fit shows in the room that it leaves.
    const bool overrun = room == -1 && reply->bytesNeeded > 0;
    return rc == ERROR_SUCCESS && overrun ? ERROR_MORE_DATA : rc;
}

// Frees the answer of the last call, and sets *answer to a new copy of the wanted name of the service that `find` finds
// under `text`. Returns 0 or 1060.
Win32Code TranslateName(std::int32_t (*find)(const char *), const char *text, char *ServiceDatabaseEntry::*to,
                        char **answer) {
    std::free(*answer);
    *answer = nullptr; // travels as the empty string
    const std::int32_t index = text != nullptr ? find(text) : -1;
    if (index < 0) return ERROR_SERVICE_DOES_NOT_EXIST; // 1060
    *answer = CheckedCopy(svcdb[index].*to);
    return ERROR_SUCCESS;
}

} // namespace

EncodedEnumeration *serv_enum_status_service_1(servd_SERV_ENUM_STATUS_SERVICE *argument, svc_req *) {
    // Keeps the list of the last call that was not refused; the next one has its memory.
    static EncodedEnumeration reply;
    if (argument->resumeIndex < 0 || argument->resumeIndex >= svcdbsize) {
        reply.words.status = ERROR_INVALID_PARAMETER; // 87; deliberate: the rest of the reply is that of the last call
        return &reply;
    }
    reply.words = {};
    reply.serviceBytes = 0;
    ListServices(*argument, &reply);
    return &reply;
}

servd_SERV_ENUM_DEPEND_SERVICE_RETURN *serv_enum_depend_service_1(servd_SERV_ENUM_DEPEND_SERVICE *argument, svc_req *) {
    // Owns the list of the last call; FreeRecord below releases it.
    static servd_SERV_ENUM_DEPEND_SERVICE_RETURN reply;
    FreeRecord(&reply);
    reply = {};
    reply.status = ListDependencies(*argument, &reply);
    return &reply;
}

servd_SERV_GET_DISPLAY_SERVICE_RETURN *serv_get_display_service_1(servd_SERV_GET_DISPLAY_SERVICE *argument, svc_req *) {
    // Owns the display name of the last call; TranslateName frees it.
    static servd_SERV_GET_DISPLAY_SERVICE_RETURN reply;
    reply.status =
        TranslateName(GetServiceIndexFromName, argument->name, &ServiceDatabaseEntry::displayName, &reply.displayName);
    return &reply;
}

servd_SERV_GET_KEY_SERVICE_RETURN *serv_get_key_service_1(servd_SERV_GET_KEY_SERVICE *argument, svc_req *) {
    // Owns the key name of the last call; TranslateName frees it.
    static servd_SERV_GET_KEY_SERVICE_RETURN reply;
    reply.status =
        TranslateName(GetServiceIndexFromDisplayName, argument->displayName, &ServiceDatabaseEntry::name, &reply.name);
    return &reply;
}
