// SPDX-License-Identifier: MIT
// listing: enumerations in pieces, and what they leave out. The daemon walks all its services for each piece, so that
// they are large.
#include "svcapi/listing.h"

#include "servd/limits.h"
#include "svcapi/calls.h"

#include <algorithm>
#include <optional>

namespace {

constexpr std::int32_t pieceBytes = 256 * 1024; // as the daemon counts: two names and a fixed part a service
constexpr std::int32_t peekControl = 0;         // below every control that the daemon would hand on
constexpr int mostIdleAnswers = 64;             // services may be made and grow while they are listed
constexpr int mostQuestions = 64;               // likewise

// How far an enumeration has come. Each answer announces the bytes that are still to come: less than the one before, by
// what it brings itself.
struct Progress {
    std::int64_t announced = INT64_MAX; // the least so far
    int idleAnswers = 0;                // that brought it no further
};

// What one answer has brought.
struct Piece {
    std::int64_t bytes = 0; // as the daemon counts
    std::size_t services = 0;
};

// Returns false where the enumeration goes on without coming to an end.
bool HasEndAhead(const Piece &piece, std::int32_t bytesNeeded, Progress *progress) {
    const bool isIdle = piece.services == 0 || bytesNeeded + piece.bytes > progress->announced;
    progress->announced = std::min<std::int64_t>(progress->announced, bytesNeeded);
    progress->idleAnswers += isIdle ? 1 : 0;
    return bytesNeeded <= 0 || progress->idleAnswers <= mostIdleAnswers;
}

DWORD ListClass(DaemonLink &link, std::int32_t type, std::int32_t state, ServiceList *services) {
    std::int32_t resumeIndex = 0;
    std::int32_t bytesNeeded = 0;
    std::int32_t bytes = pieceBytes;
    Progress progress;
    do {
        const std::size_t servicesBefore = services->places.size();
        const std::size_t textsBefore = services->textBytes;
        const DWORD rc = EnumerateRecords(link, type, state, bytes, &resumeIndex, &bytesNeeded, services);
        // Place 0 is out of range only where there are no records at all.
        if (rc == ERROR_INVALID_PARAMETER && resumeIndex == 0) return ERROR_DATABASE_DOES_NOT_EXIST;
        if (rc != ERROR_SUCCESS) return rc;
        Piece piece;
        piece.services = services->places.size() - servicesBefore;
        piece.bytes = services->textBytes - textsBefore + piece.services * fixedRecordBytes;
        if (!HasEndAhead(piece, bytesNeeded, &progress)) return ERROR_INVALID_DATA;
        // One service may be larger than a piece.
        bytes = piece.services == 0 ? std::max(bytesNeeded, pieceBytes) : pieceBytes;
    } while (bytesNeeded > 0);
    return ERROR_SUCCESS;
}

// One service is looked for among a few: services that were created or deleted have moved it a little.
constexpr std::int32_t nearBytes = 2 * 1024;
constexpr std::int32_t nearBefore = 4;

// The service of a name among those that come behind `before` others of their class; *place is set where it is found.
bool TakeNamed(const ServiceList &services, const std::string &name, DWORD serviceClass, std::int32_t before,
               ListedPlace *place, std::optional<ListedService> *service) {
    const auto found = std::find_if(services.places.begin(), services.places.end(),
                                    [&](const ServiceList::Place &listed) { return NameIn(services, listed) == name; });
    if (found == services.places.end()) return false;
    *place = {serviceClass, before + static_cast<std::int32_t>(found - services.places.begin())};
    *service = ServiceAt(services, *found);
    return true;
}

// What the daemon tells of record 0, which the enumeration leaves out; nothing when the record is free or about to be,
// or not in one of the wanted states. The configuration may be left over from another record.
DWORD ReadRecordZero(DaemonLink &link, DWORD state, std::optional<ListedService> *service) {
    service->reset();
    ListedService found;
    found.complete = false;
    DWORD rc = PeekRecord(link, 0, &found.status);
    if (rc == ERROR_INVALID_HANDLE) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS || (state & StateClassOf(found.status)) == 0) return rc;
    ServiceConfig config;
    DWORD code = ERROR_SUCCESS; // as in ReadConfig it may be left over
    rc = QueryRecordConfig(link, 0, &config, &code);
    if (rc != ERROR_SUCCESS) return rc;
    found.displayName = config.displayName;
    found.status.dwServiceType = config.type;
    // The lowest record wins, so a display name of record 0 always leads to its own key name.
    rc = KeyNameOf(link, config.displayName.c_str(), &found.name);
    if (rc == ERROR_SUCCESS) *service = std::move(found);
    return rc == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : rc;
}

// The service in record 0, unless it is marked for deletion: then it cannot be opened, and is not listed in any other
// record either.
DWORD ListRecordZero(DaemonLink &link, DWORD state, std::optional<ListedService> *service) {
    DWORD rc = ReadRecordZero(link, state, service);
    if (rc != ERROR_SUCCESS || !*service) return rc;
    std::int32_t index = 0;
    rc = OpenRecord(link, (*service)->name.c_str(), &index);
    if (rc == ERROR_SUCCESS) rc = CloseRecord(link, index);
    if (rc != ERROR_SUCCESS || index != 0) service->reset(); // another one's configuration was left over
    return rc == ERROR_SERVICE_DOES_NOT_EXIST ? ERROR_SUCCESS : rc;
}

// The daemon's own filters, for what it does not filter itself.
bool PassesFilters(const SERVICE_STATUS &status, DWORD type, DWORD state) {
    const bool isWin32 = (status.dwServiceType & SERVICE_WIN32) != 0;
    const bool isDriver = (status.dwServiceType & (SERVICE_KERNEL_DRIVER | SERVICE_FILE_SYSTEM_DRIVER)) != 0;
    return (((type & SERVICE_WIN32) != 0 && isWin32) || ((type & SERVICE_DRIVER) != 0 && isDriver)) &&
           (state & StateClassOf(status)) != 0;
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

DWORD PeekRecord(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status) {
    SERVICE_STATUS told = {};
    const DWORD rc = ControlRecord(link, index, peekControl, &told);
    if (rc != ERROR_SERVICE_NOT_ACTIVE && rc != ERROR_INVALID_SERVICE_CONTROL) return rc;
    *status = told;
    return ERROR_SUCCESS;
}

DWORD ListDependencies(DaemonLink &link, std::int32_t index, std::int32_t state, std::vector<ListedService> *services) {
    std::int32_t bytes = pieceBytes;
    for (int question = 0; question < mostQuestions; ++question) {
        std::int32_t bytesNeeded = 0;
        const DWORD rc = EnumerateRecordDependencies(link, index, state, bytes, &bytesNeeded, services);
        if (rc != ERROR_MORE_DATA || bytesNeeded <= bytes) return rc;
        bytes = bytesNeeded;
    }
    return ERROR_INVALID_DATA;
}

DWORD ReadConfig(DaemonLink &link, std::int32_t index, const std::string &name, ServiceConfig *config) {
    ServiceConfig answer;
    DWORD code = ERROR_SUCCESS;
    DWORD rc = QueryRecordConfig(link, index, &answer, &code);
    if (rc != ERROR_SUCCESS) return rc;
    if (code != ERROR_SUCCESS) {
        // After anybody's query with a bad handle the daemon says 6 with every good answer too. A bad handle answers
        // with the configuration asked for last, so the display name tells the two apart.
        std::string displayName;
        rc = DisplayNameOf(link, name.c_str(), &displayName);
        if (rc != ERROR_SUCCESS) return rc;
        if (code != ERROR_INVALID_HANDLE || displayName != answer.displayName) return code;
    }
    *config = std::move(answer);
    return IsOfNothing(*config) ? WhyOfNothing(link, index) : ERROR_SUCCESS;
}

DWORD ListServices(DaemonLink &link, DWORD type, DWORD state, ServiceList *services) {
    const auto stateFilter = static_cast<std::int32_t>(state);
    // Two questions: a filter with bits of both classes means the first class only.
    for (const DWORD serviceClass : {DWORD{SERVICE_WIN32}, DWORD{SERVICE_DRIVER}}) {
        if ((type & serviceClass) == 0) continue;
        const DWORD rc = ListClass(link, static_cast<std::int32_t>(serviceClass), stateFilter, services);
        if (rc != ERROR_SUCCESS) return rc;
    }
    return ERROR_SUCCESS;
}

DWORD ListServicesAndRecordZero(DaemonLink &link, DWORD type, DWORD state, ServiceList *services) {
    DWORD rc = ListServices(link, type, state, services);
    if (rc != ERROR_SUCCESS) return rc;
    std::optional<ListedService> recordZero;
    rc = ListRecordZero(link, state, &recordZero);
    if (recordZero && PassesFilters(recordZero->status, type, state)) Append(services, *recordZero);
    return rc;
}

DWORD FindListedService(DaemonLink &link, const std::string &name, ListedPlace *place,
                        std::optional<ListedService> *service) {
    service->reset();
    ServiceList services;
    if (place->before >= 0) {
        const std::int32_t first = std::max(place->before - nearBefore, 0);
        std::int32_t resumeIndex = first;
        std::int32_t bytesNeeded = 0;
        const DWORD rc = EnumerateRecords(link, static_cast<std::int32_t>(place->serviceClass), SERVICE_STATE_ALL,
                                          nearBytes, &resumeIndex, &bytesNeeded, &services);
        if (rc != ERROR_SUCCESS && rc != ERROR_INVALID_PARAMETER) return rc; // 87: the place is beyond the end
        if (TakeNamed(services, name, place->serviceClass, first, place, service)) return ERROR_SUCCESS;
    }
    for (const DWORD serviceClass : {DWORD{SERVICE_WIN32}, DWORD{SERVICE_DRIVER}}) {
        Truncate(&services, 0);
        const DWORD rc = ListClass(link, static_cast<std::int32_t>(serviceClass), SERVICE_STATE_ALL, &services);
        if (rc != ERROR_SUCCESS) return rc;
        if (TakeNamed(services, name, serviceClass, 0, place, service)) return ERROR_SUCCESS;
    }
    return ERROR_SUCCESS;
}

DWORD FindRecordZero(DaemonLink &link, const std::string &name, std::optional<ListedService> *service) {
    const DWORD rc = ReadRecordZero(link, SERVICE_STATE_ALL, service);
    if (*service && (*service)->name != name) service->reset();
    return rc;
}

DWORD ListAllServices(DaemonLink &link, std::vector<ListedService> *services) {
    ServiceList listed;
    DWORD rc = ListServices(link, SERVICE_WIN32 | SERVICE_DRIVER, SERVICE_STATE_ALL, &listed);
    if (rc != ERROR_SUCCESS) return rc;
    AppendTo(services, listed);
    std::optional<ListedService> recordZero;
    rc = ListRecordZero(link, SERVICE_STATE_ALL, &recordZero);
    if (recordZero) services->push_back(*std::move(recordZero));
    return rc;
}
