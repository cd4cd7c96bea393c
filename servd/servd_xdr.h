// SPDX-License-Identifier: MIT
// servd_xdr: the service daemon's protocol, program SERVDAEMONPROG over TCP (XDR, RFC 4506): its procedures and their
// records.
//
// Members stand in wire order. A service handle is the index of the service's record in svcdb; a status is a Win32
// error code. Each record has its own routine xdr_<record>; a routine that fails to decode leaves nothing decoded.
// Strings, counted bytes and list links are malloc memory that FreeRecord releases.
#pragma once

#include "rpc/procedure.h"
#include "servd/programs.h"

#include <string_view>

// The procedures, in the order of their numbers: number, its name, the daemon's handler, the argument record. The
// result record is named after the argument, with _RETURN behind. 0 is the null procedure.
// clang-format off
#define SERVD_PROCEDURES(X) \
    X(1, CONNECT_SERVICE, serv_connect_service_1, servd_SERV_CONNECT_SERVICE) \
    X(2, CREATE_SERVICE, serv_create_service_1, servd_SERV_CREATE_SERVICE) \
    X(3, OPEN_SERVICE, serv_open_service_1, servd_SERV_OPEN_SERVICE) \
    X(4, DELETE_SERVICE, serv_delete_service_1, servd_SERV_DELETE_SERVICE) \
    X(5, CLOSE_SERVICE, serv_close_service_1, servd_SERV_CLOSE_SERVICE) \
    X(6, LOCK_SERVICE, serv_lock_service_1, servd_SERV_LOCK_SERVICE) \
    X(7, UNLOCK_SERVICE, serv_unlock_service_1, servd_SERV_UNLOCK_SERVICE) \
    X(8, QUERY_LOCK_SERVICE, serv_query_lock_service_1, servd_SERV_QUERY_LOCK_SERVICE) \
    X(9, START_SERVICE, serv_start_service_1, servd_SERV_START_SERVICE) \
    X(10, CONTROL_SERVICE, serv_control_service_1, servd_SERV_CONTROL_SERVICE) \
    X(11, SET_STATUS_SERVICE, serv_set_status_service_1, servd_SERV_SET_STATUS_SERVICE) \
    X(12, DUMMY_SERVICE, serv_dummy_service_1, servd_SERV_DUMMY) \
    X(13, QUERY_STATUS_SERVICE, serv_query_status_service_1, servd_SERV_QUERY_STATUS_SERVICE) \
    X(14, ENUM_STATUS_SERVICE, serv_enum_status_service_1, servd_SERV_ENUM_STATUS_SERVICE) \
    X(15, GET_DISPLAY_SERVICE, serv_get_display_service_1, servd_SERV_GET_DISPLAY_SERVICE) \
    X(16, GET_KEY_SERVICE, serv_get_key_service_1, servd_SERV_GET_KEY_SERVICE) \
    X(17, ENUM_DEPEND_SERVICE, serv_enum_depend_service_1, servd_SERV_ENUM_DEPEND_SERVICE) \
    X(18, QUERY_CONFIG_SERVICE, serv_query_config_service_1, servd_SERV_QUERY_CONFIG_SERVICE) \
    X(19, CHANGE_CONFIG_SERVICE, serv_change_config_service_1, servd_SERV_CHANGE_CONFIG_SERVICE) \
    X(20, STOP_DAEMON_SERVICE, serv_stop_daemon_service_1, servd_STOP_DAEMON_SERVICE)
// clang-format on

#define SERVD_NUMBER(number, name, handler, Record) name = number,
enum ServdProcedure : std::uint32_t { SERVD_PROCEDURES(SERVD_NUMBER) };
#undef SERVD_NUMBER

// One argument string of a start request.
struct svd_arglist_t {
    char *arg;
    svd_arglist_t *next; // null at the end
};
constexpr auto Fields(As<svd_arglist_t> auto &r) { return std::tie(r.arg); }

// The Win32 SERVICE_STATUS.
struct svd_status_t {
    std::int32_t dwServiceType;
    std::int32_t dwCurrentState;     // 1 SERVICE_STOPPED to 7 SERVICE_PAUSED
    std::int32_t dwControlsAccepted; // bit 1 stop, bit 2 pause and continue
    std::int32_t dwWin32ExitCode;
    std::int32_t dwServiceSpecificExitCode;
    std::int32_t dwCheckPoint;
    std::int32_t dwWaitHint; // milliseconds
};
constexpr auto Fields(As<svd_status_t> auto &r) {
    return std::tie(r.dwServiceType, r.dwCurrentState, r.dwControlsAccepted, r.dwWin32ExitCode,
                    r.dwServiceSpecificExitCode, r.dwCheckPoint, r.dwWaitHint);
}

// One entry of an enumeration.
struct svd_enum_status_list_t {
    char *name; // registry key name
    char *displayName;
    svd_status_t status;
    svd_enum_status_list_t *next; // null at the end
};
constexpr auto Fields(As<svd_enum_status_list_t> auto &r) { return std::tie(r.name, r.displayName, r.status); }
// The chain as any other, but that encoding takes one stretch of the stream for each link: there may be ten thousand.
bool_t CodeField(XDR *xdrs, svd_enum_status_list_t *&head);

struct servd_SERV_CONNECT_SERVICE {
    char *machineName;
};
constexpr auto Fields(As<servd_SERV_CONNECT_SERVICE> auto &r) { return std::tie(r.machineName); }

struct servd_SERV_CONNECT_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_CONNECT_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_CREATE_SERVICE {
    char *name;
    char *displayName;
    std::uint32_t serviceType;
    std::uint32_t startType;
    std::uint32_t errorControl;
    char *imagePath;
    char *group;
    CharArray dependencies; // a multi-string, both terminators counted; a count of 1 means none
    char *account;          // the Unix user that the service runs as; empty for the daemon's own
    std::int32_t tagWanted; // non-zero when the client asks for a tag
};
constexpr auto Fields(As<servd_SERV_CREATE_SERVICE> auto &r) {
    return std::tie(r.name, r.displayName, r.serviceType, r.startType, r.errorControl, r.imagePath, r.group,
                    r.dependencies, r.account, r.tagWanted);
}

struct servd_SERV_CREATE_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t handle;
    std::uint32_t tag;
};
constexpr auto Fields(As<servd_SERV_CREATE_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.handle, r.tag); }

struct servd_SERV_OPEN_SERVICE {
    char *name;
    std::uint32_t desiredAccess;
};
constexpr auto Fields(As<servd_SERV_OPEN_SERVICE> auto &r) { return std::tie(r.name, r.desiredAccess); }

struct servd_SERV_OPEN_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t handle;
};
constexpr auto Fields(As<servd_SERV_OPEN_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.handle); }

struct servd_SERV_DELETE_SERVICE {
    std::int32_t handle;
};
constexpr auto Fields(As<servd_SERV_DELETE_SERVICE> auto &r) { return std::tie(r.handle); }

struct servd_SERV_DELETE_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_DELETE_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_CLOSE_SERVICE {
    std::int32_t handle;
};
constexpr auto Fields(As<servd_SERV_CLOSE_SERVICE> auto &r) { return std::tie(r.handle); }

struct servd_SERV_CLOSE_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_CLOSE_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_LOCK_SERVICE {
    std::int32_t lockId; // must not be 0
    char *owner;
};
constexpr auto Fields(As<servd_SERV_LOCK_SERVICE> auto &r) { return std::tie(r.lockId, r.owner); }

struct servd_SERV_LOCK_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_LOCK_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_UNLOCK_SERVICE {
    std::int32_t lockId;
};
constexpr auto Fields(As<servd_SERV_UNLOCK_SERVICE> auto &r) { return std::tie(r.lockId); }

struct servd_SERV_UNLOCK_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_UNLOCK_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_QUERY_LOCK_SERVICE {
    std::int32_t unused;
};
constexpr auto Fields(As<servd_SERV_QUERY_LOCK_SERVICE> auto &r) { return std::tie(r.unused); }

struct servd_SERV_QUERY_LOCK_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t isLocked;
    char *owner;
    std::int32_t lockDurationSec;
};
constexpr auto Fields(As<servd_SERV_QUERY_LOCK_SERVICE_RETURN> auto &r) {
    return std::tie(r.status, r.isLocked, r.owner, r.lockDurationSec);
}

struct servd_SERV_START_SERVICE {
    std::int32_t handle;
    svd_arglist_t *arglist;
    std::int32_t argc;
};
constexpr auto Fields(As<servd_SERV_START_SERVICE> auto &r) { return std::tie(r.handle, r.arglist, r.argc); }

struct servd_SERV_START_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_START_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_CONTROL_SERVICE {
    std::int32_t handle;
    std::int32_t control;
};
constexpr auto Fields(As<servd_SERV_CONTROL_SERVICE> auto &r) { return std::tie(r.handle, r.control); }

struct servd_SERV_CONTROL_SERVICE_RETURN {
    std::int32_t status;
    svd_status_t serviceStatus;
};
constexpr auto Fields(As<servd_SERV_CONTROL_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.serviceStatus); }

struct servd_SERV_SET_STATUS_SERVICE {
    std::int32_t handle;
    svd_status_t serviceStatus;
};
constexpr auto Fields(As<servd_SERV_SET_STATUS_SERVICE> auto &r) { return std::tie(r.handle, r.serviceStatus); }

struct servd_SERV_SET_STATUS_SERVICE_RETURN {
    std::int32_t status;
};
constexpr auto Fields(As<servd_SERV_SET_STATUS_SERVICE_RETURN> auto &r) { return std::tie(r.status); }

struct servd_SERV_DUMMY {
    std::int32_t dummy;
};
constexpr auto Fields(As<servd_SERV_DUMMY> auto &r) { return std::tie(r.dummy); }

struct servd_SERV_DUMMY_RETURN {
    std::int32_t dummy;
};
constexpr auto Fields(As<servd_SERV_DUMMY_RETURN> auto &r) { return std::tie(r.dummy); }

struct servd_SERV_QUERY_STATUS_SERVICE {
    std::int32_t handle;
};
constexpr auto Fields(As<servd_SERV_QUERY_STATUS_SERVICE> auto &r) { return std::tie(r.handle); }

struct servd_SERV_QUERY_STATUS_SERVICE_RETURN {
    std::int32_t status;
    svd_status_t serviceStatus;
};
constexpr auto Fields(As<servd_SERV_QUERY_STATUS_SERVICE_RETURN> auto &r) {
    return std::tie(r.status, r.serviceStatus);
}

struct servd_SERV_ENUM_STATUS_SERVICE {
    std::int32_t resumeIndex;
    std::int32_t typeFilter;
    std::int32_t stateFilter;
    std::int32_t bufferBytes;
};
constexpr auto Fields(As<servd_SERV_ENUM_STATUS_SERVICE> auto &r) {
    return std::tie(r.resumeIndex, r.typeFilter, r.stateFilter, r.bufferBytes);
}

struct servd_SERV_ENUM_STATUS_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t bytesNeeded;
    std::int32_t servicesReturned;
    std::int32_t resumeIndex;
    svd_enum_status_list_t *services;
};
constexpr auto Fields(As<servd_SERV_ENUM_STATUS_SERVICE_RETURN> auto &r) {
    return std::tie(r.status, r.bytesNeeded, r.servicesReturned, r.resumeIndex, r.services);
}

// The same answer as the daemon makes it: each service is encoded as it is listed, and no record is made of it.
struct EncodedEnumeration {
    servd_SERV_ENUM_STATUS_SERVICE_RETURN words; // its list stays null
    char *services;                              // both parts of each (PutListedNames); malloc memory
    std::size_t serviceBytes;
    std::size_t roomBytes; // of services
};

// Write the two parts of a link of an enumeration as it travels: the word that says there is one, with both names; the
// status. There must be room for ListedNameWords of the names' lengths, and for listedStatusWords. Both return what is
// behind.
std::uint32_t *PutListedNames(std::uint32_t *at, std::string_view name, std::string_view displayName);
[[nodiscard]] std::size_t ListedNameWords(std::size_t nameBytes, std::size_t displayNameBytes);
inline constexpr std::size_t listedStatusWords = 7;
inline std::uint32_t *PutListedStatus(std::uint32_t *at, const svd_status_t &status) {
    std::apply([&at](const auto &...fields) { ((*at++ = htonl(static_cast<std::uint32_t>(fields))), ...); },
               Fields(status));
    return at;
}

struct servd_SERV_GET_DISPLAY_SERVICE {
    char *name;
};
constexpr auto Fields(As<servd_SERV_GET_DISPLAY_SERVICE> auto &r) { return std::tie(r.name); }

struct servd_SERV_GET_DISPLAY_SERVICE_RETURN {
    std::int32_t status;
    char *displayName;
};
constexpr auto Fields(As<servd_SERV_GET_DISPLAY_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.displayName); }

struct servd_SERV_GET_KEY_SERVICE {
    char *displayName;
};
constexpr auto Fields(As<servd_SERV_GET_KEY_SERVICE> auto &r) { return std::tie(r.displayName); }

struct servd_SERV_GET_KEY_SERVICE_RETURN {
    std::int32_t status;
    char *name;
};
constexpr auto Fields(As<servd_SERV_GET_KEY_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.name); }

struct servd_SERV_ENUM_DEPEND_SERVICE {
    std::int32_t handle;
    std::int32_t stateFilter;
    std::int32_t bufferBytes;
};
constexpr auto Fields(As<servd_SERV_ENUM_DEPEND_SERVICE> auto &r) {
    return std::tie(r.handle, r.stateFilter, r.bufferBytes);
}

struct servd_SERV_ENUM_DEPEND_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t bytesNeeded;
    std::int32_t servicesReturned;
    svd_enum_status_list_t *services;
};
constexpr auto Fields(As<servd_SERV_ENUM_DEPEND_SERVICE_RETURN> auto &r) {
    return std::tie(r.status, r.bytesNeeded, r.servicesReturned, r.services);
}

struct servd_SERV_QUERY_CONFIG_SERVICE {
    std::int32_t handle;
};
constexpr auto Fields(As<servd_SERV_QUERY_CONFIG_SERVICE> auto &r) { return std::tie(r.handle); }

struct servd_SERV_QUERY_CONFIG_SERVICE_RETURN {
    std::int32_t status;
    std::uint32_t serviceType;
    std::uint32_t startType;
    std::uint32_t errorControl;
    char *imagePath;
    char *group;
    std::int32_t tag;
    CharArray dependencies; // the raw "DependOnGroup" value
    char *account;          // the "DependOnService" value up to its first NUL
    char *displayName;
};
constexpr auto Fields(As<servd_SERV_QUERY_CONFIG_SERVICE_RETURN> auto &r) {
    return std::tie(r.status, r.serviceType, r.startType, r.errorControl, r.imagePath, r.group, r.tag, r.dependencies,
                    r.account, r.displayName);
}

// A count of 0 in one of the six arrays means no change; a string's count includes its terminator.
struct servd_SERV_CHANGE_CONFIG_SERVICE {
    std::int32_t handle;
    std::uint32_t serviceType;
    std::uint32_t startType;
    std::uint32_t errorControl;
    CharArray imagePath;
    CharArray group;
    CharArray dependencies;
    CharArray account;
    CharArray password; // not used
    CharArray displayName;
    std::int32_t tagWanted;
};
constexpr auto Fields(As<servd_SERV_CHANGE_CONFIG_SERVICE> auto &r) {
    return std::tie(r.handle, r.serviceType, r.startType, r.errorControl, r.imagePath, r.group, r.dependencies,
                    r.account, r.password, r.displayName, r.tagWanted);
}

struct servd_SERV_CHANGE_CONFIG_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t tag;
};
constexpr auto Fields(As<servd_SERV_CHANGE_CONFIG_SERVICE_RETURN> auto &r) { return std::tie(r.status, r.tag); }

struct servd_STOP_DAEMON_SERVICE {
    std::int32_t unused;
};
constexpr auto Fields(As<servd_STOP_DAEMON_SERVICE> auto &r) { return std::tie(r.unused); }

struct servd_STOP_DAEMON_SERVICE_RETURN {
    std::int32_t unused; // never sent
};
constexpr auto Fields(As<servd_STOP_DAEMON_SERVICE_RETURN> auto &r) { return std::tie(r.unused); }

TV_ROUTINE(svd_arglist_t)
TV_ROUTINE(svd_status_t)
TV_ROUTINE(svd_enum_status_list_t)

#define SERVD_DECLARE(number, name, handler, Record)                                                                   \
    TV_ROUTINE(Record)                                                                                                 \
    TV_ROUTINE(Record##_RETURN)                                                                                        \
    TV_PROCEDURE(number, Record, Record##_RETURN)
SERVD_PROCEDURES(SERVD_DECLARE)
#undef SERVD_DECLARE
TV_ROUTINE(EncodedEnumeration) // encodes only
