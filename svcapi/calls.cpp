// SPDX-License-Identifier: MIT
// calls: one call each, and what its answer means.
#include "svcapi/calls.h"

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

// --- an enumeration's answer, handed on as it is decoded: as a list of records it would take some allocations for each
// service, and as much time as all the rest ---

struct Enumeration {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN words; // its list stays null
    const ServiceSink *sink;
};

// Takes a service, and the word behind it that says whether there is another.
bool TakeServiceByField(XDR *xdrs, const ServiceSink *sink, std::uint32_t *more) {
    svd_enum_status_list_t record = {};
    const RecordGuard<svd_enum_status_list_t> released(&record);
    if (!CodeField(xdrs, record) || !CodeField(xdrs, *more)) return false;
    if (sink != nullptr) (*sink)({record.name, record.displayName, ToWin32(record.status)});
    return true;
}

// The next bytes of a stream that has them all in one piece; null behind its end.
const std::uint32_t *TakeWords(XDR *xdrs, std::uint64_t bytes) {
    if (bytes > INT32_MAX) return nullptr;
    return reinterpret_cast<const std::uint32_t *>(XDR_INLINE(xdrs, static_cast<u_int>(bytes)));
}

std::uint64_t Padded(std::uint32_t bytes) {
    return (std::uint64_t{bytes} + BYTES_PER_XDR_UNIT - 1) / BYTES_PER_XDR_UNIT * BYTES_PER_XDR_UNIT;
}

std::string_view TextAt(const std::uint32_t *at, std::uint32_t count) {
    const auto *const text = reinterpret_cast<const char *>(at);
    return {text, strnlen(text, count)};
}

// The same in as few looks at the stream as the lengths in it allow: each text is taken together with the words that
// follow it.
bool TakeServiceInPlace(XDR *xdrs, const ServiceSink *sink, std::uint32_t *more) {
    constexpr std::size_t statusWords = sizeof(SERVICE_STATUS) / sizeof(DWORD);
    const std::uint32_t *at = TakeWords(xdrs, BYTES_PER_XDR_UNIT);
    if (at == nullptr) return false;
    const std::uint32_t nameBytes = ntohl(*at);
    at = TakeWords(xdrs, Padded(nameBytes) + BYTES_PER_XDR_UNIT);
    if (at == nullptr) return false;
    ListedView service;
    service.name = TextAt(at, nameBytes);
    const std::uint32_t displayNameBytes = ntohl(at[Padded(nameBytes) / BYTES_PER_XDR_UNIT]);
    at = TakeWords(xdrs, Padded(displayNameBytes) + (statusWords + 1) * BYTES_PER_XDR_UNIT);
    if (at == nullptr) return false;
    service.displayName = TextAt(at, displayNameBytes);
    at += Padded(displayNameBytes) / BYTES_PER_XDR_UNIT;
    service.status = {ntohl(at[0]), ntohl(at[1]), ntohl(at[2]), ntohl(at[3]), ntohl(at[4]), ntohl(at[5]), ntohl(at[6])};
    *more = ntohl(at[statusWords]);
    if (sink != nullptr) (*sink)(service);
    return true;
}

// What the routine of the whole record decodes, the list's end included.
bool_t DecodeEnumeration(XDR *xdrs, Enumeration *answer) {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN &words = answer->words;
    std::uint32_t more = 0;
    if (!CodeFields(xdrs, words.status, words.bytesNeeded, words.servicesReturned, words.resumeIndex, more)) {
        return FALSE;
    }
    // A refused enumeration carries the list of another one.
    const ServiceSink *const sink = words.status == ERROR_SUCCESS ? answer->sink : nullptr;
    const bool isInPlace = XDR_INLINE(xdrs, 0) != nullptr; // else its words stand across those of this machine
    while (more != 0) {
        if (!(isInPlace ? TakeServiceInPlace : TakeServiceByField)(xdrs, sink, &more)) return FALSE;
    }
    return TRUE;
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
                       std::int32_t *resumeIndex, std::int32_t *bytesNeeded, const ServiceSink &sink) {
    using Argument = servd_SERV_ENUM_STATUS_SERVICE;
    Argument argument = {*resumeIndex, type, state, bytes};
    Enumeration answer = {.words = {}, .sink = &sink};
    const DWORD rc = CallTraced(link, argument, answer.words, [&](CLIENT *client, timeval timeout) {
        return clnt_call(client, ProcedureOf<Argument>::number, RoutineOf<Argument>(), &argument,
                         Untyped(DecodeEnumeration), &answer, timeout);
    });
    if (rc != ERROR_SUCCESS || answer.words.status != ERROR_SUCCESS) {
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
