// SPDX-License-Identifier: MIT
// calls: one call each, and what its answer means.
#include "svcapi/calls.h"

#include "rpc/message.h"
#include "util/string_list.h"

#include <cstring>

namespace {

DWORD AsCode(std::int32_t status) { return static_cast<DWORD>(status); }

// Calls the daemon and has use(answer) take what is wanted of the answer and return a code; the answer is released
// afterwards. Returns that code, or the link's, without an answer then.
template <typename Argument, typename Use>
DWORD Ask(DaemonLink &link, const Argument &argument, Use use) {
    ResultOf<Argument> answer = {};
    const RecordGuard<ResultOf<Argument>> released(&answer);
    const DWORD rc = CallDaemon(link, argument, &answer);
    return rc != ERROR_SUCCESS ? rc : use(answer);
}

// The same for an answer that is a code and nothing more.
template <typename Argument>
DWORD AskForCode(DaemonLink &link, const Argument &argument) {
    return Ask(link, argument, [](const auto &answer) { return AsCode(answer.status); });
}

// The same, and what is wanted is there when the daemon says 0.
template <typename Argument, typename Store>
DWORD AskAndStore(DaemonLink &link, const Argument &argument, Store store) {
    return Ask(link, argument, [&store](const auto &answer) {
        if (answer.status == ERROR_SUCCESS) store(answer);
        return AsCode(answer.status);
    });
}

SERVICE_STATUS ToWin32(const svd_status_t &status) {
    return {static_cast<DWORD>(status.dwServiceType),
            static_cast<DWORD>(status.dwCurrentState),
            static_cast<DWORD>(status.dwControlsAccepted),
            static_cast<DWORD>(status.dwWin32ExitCode),
            static_cast<DWORD>(status.dwServiceSpecificExitCode),
            static_cast<DWORD>(status.dwCheckPoint),
            static_cast<DWORD>(status.dwWaitHint)};
}

// The words of a control's answer that mean something; the others are left over from an earlier control of anybody's.
SERVICE_STATUS TrueWords(const servd_SERV_CONTROL_SERVICE_RETURN &answer) {
    const SERVICE_STATUS told = ToWin32(answer.serviceStatus);
    const bool foundDead = answer.status == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && told.dwCurrentState == SERVICE_STOPPED;
    if (answer.status == ERROR_SUCCESS || foundDead) return told;
    SERVICE_STATUS status = {};
    status.dwCurrentState = told.dwCurrentState;
    status.dwControlsAccepted = told.dwControlsAccepted;
    // The state was noted before the daemon found the process gone.
    if (answer.status == ERROR_SERVICE_NOT_ACTIVE) status.dwCurrentState = SERVICE_STOPPED;
    return status;
}

void Append(const svd_enum_status_list_t *records, std::vector<ListedService> *services) {
    for (; records != nullptr; records = records->next) {
        services->push_back({records->name, records->displayName, ToWin32(records->status), true});
    }
}

// --- an enumeration's answer, decoded where it stands: as a list of records it would take some allocations for each
// service, and as much time as all the rest ---

struct Enumeration {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN words; // its list stays null
    ServiceList *services;
};

constexpr std::size_t statusBytes = std::size_t{7} * BYTES_PER_XDR_UNIT;

std::uint32_t TakeWord(std::string_view *bytes) {
    const std::uint32_t word = WordAt(bytes->data());
    bytes->remove_prefix(BYTES_PER_XDR_UNIT);
    return word;
}

SERVICE_STATUS TakeStatus(std::string_view *bytes) {
    const char *const at = bytes->data();
    bytes->remove_prefix(statusBytes);
    return {WordAt(at),      WordAt(at + 4),  WordAt(at + 8), WordAt(at + 12),
            WordAt(at + 16), WordAt(at + 20), WordAt(at + 24)};
}

// A text up to its first zero, where there is one. False when it has not come whole.
bool TakeText(std::string_view *bytes, std::string_view *text) {
    if (bytes->size() < BYTES_PER_XDR_UNIT) return false;
    const std::uint32_t count = TakeWord(bytes);
    if (count > bytes->size() || RNDUP(std::size_t{count}) > bytes->size()) return false;
    *text = {bytes->data(), strnlen(bytes->data(), count)};
    bytes->remove_prefix(RNDUP(std::size_t{count}));
    return true;
}

// Takes all services, and the words between them that say there is another. Returns where they end, null where they end
// too soon.
const char *TakeServices(std::string_view bytes, ServiceList *services) {
    MakeRoomForTexts(services, bytes.size()); // each service has more bytes here than texts
    for (std::uint32_t more = 1; more != 0; more = TakeWord(&bytes)) {
        std::string_view name, displayName;
        if (!TakeText(&bytes, &name) || !TakeText(&bytes, &displayName)) return nullptr;
        if (bytes.size() < statusBytes + BYTES_PER_XDR_UNIT) return nullptr;
        PutService(services, name, displayName, TakeStatus(&bytes));
    }
    return bytes.data();
}

// All that a stream has left, which it has in one piece; how much it is shows in nothing but what is refused.
std::string_view TakeRest(XDR *xdrs) {
    const auto *const begin = reinterpret_cast<const char *>(XDR_INLINE(xdrs, 0));
    std::size_t count = 0;
    for (u_int bytes = u_int{1} << 31; bytes != 0; bytes /= 2) {
        if (XDR_INLINE(xdrs, bytes) != nullptr) count += bytes;
    }
    return {begin, count};
}

bool TakeServicesInPlace(XDR *xdrs, ServiceList *services) {
    const u_int position = XDR_GETPOS(xdrs);
    const std::string_view bytes = TakeRest(xdrs);
    const char *const end = TakeServices(bytes, services);
    return end != nullptr && XDR_SETPOS(xdrs, position + static_cast<u_int>(end - bytes.data()));
}

// The same where the words of the stream stand across those of this machine.
bool TakeServicesByField(XDR *xdrs, ServiceList *services) {
    for (std::uint32_t more = 1; more != 0;) {
        svd_enum_status_list_t record = {};
        const RecordGuard<svd_enum_status_list_t> released(&record);
        if (!CodeField(xdrs, record) || !CodeField(xdrs, more)) return false;
        Append(services, {record.name, record.displayName, ToWin32(record.status)});
    }
    return true;
}

// What the routine of the whole record decodes, the list's end included.
bool_t DecodeEnumeration(XDR *xdrs, Enumeration *answer) {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN &words = answer->words;
    std::uint32_t more = 0;
    if (!CodeFields(xdrs, words.status, words.bytesNeeded, words.servicesReturned, words.resumeIndex, more)) {
        return FALSE;
    }
    if (more == 0) return TRUE;
    const bool isInPlace = XDR_INLINE(xdrs, 0) != nullptr;
    return (isInPlace ? TakeServicesInPlace : TakeServicesByField)(xdrs, answer->services) ? TRUE : FALSE;
}

} // namespace

DWORD PingDaemon(DaemonLink &link) {
    return Ask(link, Nothing{}, [](const Nothing &) { return DWORD{ERROR_SUCCESS}; });
}

DWORD AskInitCode(DaemonLink &link, DWORD *initCode) {
    return Ask(link, servd_SERV_CONNECT_SERVICE{Borrowed(link.host.c_str())}, [initCode](const auto &answer) {
        *initCode = AsCode(answer.status);
        return DWORD{ERROR_SUCCESS};
    });
}

DWORD CreateRecord(DaemonLink &link, const servd_SERV_CREATE_SERVICE &service, std::int32_t *index, DWORD *tag) {
    return AskAndStore(link, service, [=](const auto &answer) {
        *index = answer.handle;
        *tag = answer.tag;
    });
}

DWORD OpenRecord(DaemonLink &link, const char *name, std::int32_t *index) {
    return AskAndStore(link, servd_SERV_OPEN_SERVICE{Borrowed(name), SERVICE_ALL_ACCESS},
                       [index](const auto &answer) { *index = answer.handle; });
}

DWORD DeleteRecord(DaemonLink &link, std::int32_t index) { return AskForCode(link, servd_SERV_DELETE_SERVICE{index}); }

DWORD CloseRecord(DaemonLink &link, std::int32_t index) { return AskForCode(link, servd_SERV_CLOSE_SERVICE{index}); }

DWORD LockDatabase(DaemonLink &link, std::int32_t lockId, const std::string &owner) {
    return AskForCode(link, servd_SERV_LOCK_SERVICE{lockId, Borrowed(owner.c_str())});
}

DWORD UnlockDatabase(DaemonLink &link, std::int32_t lockId) {
    return AskForCode(link, servd_SERV_UNLOCK_SERVICE{lockId});
}

DWORD QueryDatabaseLock(DaemonLink &link, LockStatus *status) {
    return AskAndStore(link, servd_SERV_QUERY_LOCK_SERVICE{}, [status](const auto &answer) {
        // Owner and seconds of a free database are left over from the lock before.
        const bool locked = answer.isLocked != 0;
        *status = {locked, locked ? answer.owner : "", locked ? static_cast<DWORD>(answer.lockDurationSec) : 0};
    });
}

DWORD StartRecord(DaemonLink &link, std::int32_t index, DWORD argc, LPCSTR *argv) {
    std::vector<svd_arglist_t> links(argc);
    for (DWORD i = 0; i < argc; ++i) {
        links[i] = {Borrowed(argv[i]), i + 1 < argc ? &links[i + 1] : nullptr};
    }
    svd_arglist_t *const first = links.empty() ? nullptr : links.data();
    return AskForCode(link, servd_SERV_START_SERVICE{index, first, static_cast<std::int32_t>(argc)});
}

DWORD ControlRecord(DaemonLink &link, std::int32_t index, std::int32_t control, SERVICE_STATUS *status) {
    return Ask(link, servd_SERV_CONTROL_SERVICE{index, control}, [status](const auto &answer) {
        if (answer.status != ERROR_INVALID_HANDLE) *status = TrueWords(answer);
        return AsCode(answer.status);
    });
}

DWORD SetRecordStatus(DaemonLink &link, std::int32_t index, const SERVICE_STATUS &status) {
    return AskForCode(link, servd_SERV_SET_STATUS_SERVICE{index, ToWire(status)});
}

DWORD QueryRecordStatus(DaemonLink &link, std::int32_t index, SERVICE_STATUS *status) {
    return AskAndStore(link, servd_SERV_QUERY_STATUS_SERVICE{index},
                       [status](const auto &answer) { *status = ToWin32(answer.serviceStatus); });
}

DWORD EnumerateRecords(DaemonLink &link, std::int32_t type, std::int32_t state, std::int32_t bytes,
                       std::int32_t *resumeIndex, std::int32_t *bytesNeeded, ServiceList *services) {
    using Argument = servd_SERV_ENUM_STATUS_SERVICE;
    Argument argument = {*resumeIndex, type, state, bytes};
    Enumeration answer = {.words = {}, .services = services};
    const std::size_t before = services->places.size();
    const DWORD rc = CallTraced(link, argument, answer.words, [&](CLIENT *client, timeval timeout) {
        return clnt_call(client, ProcedureOf<Argument>::number, RoutineOf<Argument>(), &argument,
                         Untyped(DecodeEnumeration), &answer, timeout);
    });
    if (rc != ERROR_SUCCESS || answer.words.status != ERROR_SUCCESS) {
        Truncate(services, before); // a refused enumeration carries the list of another one
        return rc != ERROR_SUCCESS ? rc : AsCode(answer.words.status);
    }
    *resumeIndex = answer.words.resumeIndex;
    *bytesNeeded = answer.words.bytesNeeded;
    return ERROR_SUCCESS;
}

DWORD DisplayNameOf(DaemonLink &link, const char *name, std::string *displayName) {
    return AskAndStore(link, servd_SERV_GET_DISPLAY_SERVICE{Borrowed(name)},
                       [displayName](const auto &answer) { *displayName = answer.displayName; });
}

DWORD KeyNameOf(DaemonLink &link, const char *displayName, std::string *name) {
    return AskAndStore(link, servd_SERV_GET_KEY_SERVICE{Borrowed(displayName)},
                       [name](const auto &answer) { *name = answer.name; });
}

DWORD EnumerateRecordDependencies(DaemonLink &link, std::int32_t index, std::int32_t state, std::int32_t bytes,
                                  std::int32_t *bytesNeeded, std::vector<ListedService> *services) {
    return Ask(link, servd_SERV_ENUM_DEPEND_SERVICE{index, state, bytes}, [=](const auto &answer) {
        *bytesNeeded = answer.bytesNeeded;
        if (answer.status == ERROR_SUCCESS) Append(answer.services, services);
        return AsCode(answer.status);
    });
}

DWORD QueryRecordConfig(DaemonLink &link, std::int32_t index, ServiceConfig *config, DWORD *code) {
    return Ask(link, servd_SERV_QUERY_CONFIG_SERVICE{index}, [=](const auto &answer) {
        *config = {answer.serviceType,
                   answer.startType,
                   answer.errorControl,
                   answer.imagePath,
                   answer.group,
                   static_cast<DWORD>(answer.tag),
                   SplitMultiString({answer.dependencies.chars, answer.dependencies.count}),
                   answer.account,
                   answer.displayName};
        *code = AsCode(answer.status);
        return DWORD{ERROR_SUCCESS};
    });
}

DWORD ChangeRecordConfig(DaemonLink &link, const servd_SERV_CHANGE_CONFIG_SERVICE &change, DWORD *tag) {
    return AskAndStore(link, change, [tag](const auto &answer) {
        if (tag != nullptr) *tag = static_cast<DWORD>(answer.tag);
    });
}

DWORD StopDaemon(DaemonLink &link) {
    const DWORD rc = Ask(link, servd_STOP_DAEMON_SERVICE{}, [](const auto &) { return DWORD{ERROR_SUCCESS}; });
    return rc == RPC_S_CALL_FAILED ? ERROR_SUCCESS : rc;
}

svd_status_t ToWire(const SERVICE_STATUS &status) {
    return {static_cast<std::int32_t>(status.dwServiceType),
            static_cast<std::int32_t>(status.dwCurrentState),
            static_cast<std::int32_t>(status.dwControlsAccepted),
            static_cast<std::int32_t>(status.dwWin32ExitCode),
            static_cast<std::int32_t>(status.dwServiceSpecificExitCode),
            static_cast<std::int32_t>(status.dwCheckPoint),
            static_cast<std::int32_t>(status.dwWaitHint)};
}
