// SPDX-License-Identifier: MIT
// servd_xdr: the records of the service daemon's protocol, program SERVDAEMONPROG over TCP (XDR, RFC 4506).
//
// Members stand in wire order. A service handle is the index of the service's record in svcdb; a status is a Win32
// error code. Each record has its own routine xdr_<record>; a routine that fails to decode leaves nothing decoded.
// Strings, counted bytes and list links are malloc memory that the record's routine releases with XDR_FREE.
#pragma once

#include "rpc/codec.h"
#include "servd/programs.h"

// Procedure numbers of SERVDAEMONPROG; 0 is the null procedure.
enum ServdProcedure : std::uint32_t {
    CONNECT_SERVICE = 1,
    CREATE_SERVICE = 2,
    OPEN_SERVICE = 3,
    DELETE_SERVICE = 4,
    CLOSE_SERVICE = 5,
    LOCK_SERVICE = 6,
    UNLOCK_SERVICE = 7,
    QUERY_LOCK_SERVICE = 8,
    START_SERVICE = 9,
    CONTROL_SERVICE = 10,
    SET_STATUS_SERVICE = 11,
    DUMMY_SERVICE = 12,
    QUERY_STATUS_SERVICE = 13,
    ENUM_STATUS_SERVICE = 14,
    GET_DISPLAY_SERVICE = 15,
    GET_KEY_SERVICE = 16,
    ENUM_DEPEND_SERVICE = 17,
    QUERY_CONFIG_SERVICE = 18,
    CHANGE_CONFIG_SERVICE = 19,
    STOP_DAEMON_SERVICE = 20,
};

// One argument string of a start request.
struct svd_arglist_t {
    char *arg;
    svd_arglist_t *next; // null at the end
};

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

// One entry of an enumeration.
struct svd_enum_status_list_t {
    char *name; // registry key name
    char *displayName;
    svd_status_t status;
    svd_enum_status_list_t *next; // null at the end
};

struct servd_SERV_CONNECT_SERVICE {
    char *machineName;
};

struct servd_SERV_CONNECT_SERVICE_RETURN {
    std::int32_t status;
};

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

struct servd_SERV_CREATE_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t handle;
    std::uint32_t tag;
};

struct servd_SERV_OPEN_SERVICE {
    char *name;
    std::uint32_t desiredAccess;
};

struct servd_SERV_OPEN_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t handle;
};

struct servd_SERV_DELETE_SERVICE {
    std::int32_t handle;
};

struct servd_SERV_DELETE_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_CLOSE_SERVICE {
    std::int32_t handle;
};

struct servd_SERV_CLOSE_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_LOCK_SERVICE {
    std::int32_t lockId; // must not be 0
    char *owner;
};

struct servd_SERV_LOCK_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_UNLOCK_SERVICE {
    std::int32_t lockId;
};

struct servd_SERV_UNLOCK_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_QUERY_LOCK_SERVICE {
    std::int32_t unused;
};

struct servd_SERV_QUERY_LOCK_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t isLocked;
    char *owner;
    std::int32_t lockDurationSec;
};

struct servd_SERV_START_SERVICE {
    std::int32_t handle;
    svd_arglist_t *arglist;
    std::int32_t argc;
};

struct servd_SERV_START_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_CONTROL_SERVICE {
    std::int32_t handle;
    std::int32_t control;
};

struct servd_SERV_CONTROL_SERVICE_RETURN {
    std::int32_t status;
    svd_status_t serviceStatus;
};

struct servd_SERV_SET_STATUS_SERVICE {
    std::int32_t handle;
    svd_status_t serviceStatus;
};

struct servd_SERV_SET_STATUS_SERVICE_RETURN {
    std::int32_t status;
};

struct servd_SERV_DUMMY {
    std::int32_t dummy;
};

struct servd_SERV_DUMMY_RETURN {
    std::int32_t dummy;
};

struct servd_SERV_QUERY_STATUS_SERVICE {
    std::int32_t handle;
};

struct servd_SERV_QUERY_STATUS_SERVICE_RETURN {
    std::int32_t status;
    svd_status_t serviceStatus;
};

struct servd_SERV_ENUM_STATUS_SERVICE {
    std::int32_t resumeIndex;
    std::int32_t typeFilter;
    std::int32_t stateFilter;
    std::int32_t bufferBytes;
};

struct servd_SERV_ENUM_STATUS_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t bytesNeeded;
    std::int32_t servicesReturned;
    std::int32_t resumeIndex;
    svd_enum_status_list_t *services;
};

struct servd_SERV_GET_DISPLAY_SERVICE {
    char *name;
};

struct servd_SERV_GET_DISPLAY_SERVICE_RETURN {
    std::int32_t status;
    char *displayName;
};

struct servd_SERV_GET_KEY_SERVICE {
    char *displayName;
};

struct servd_SERV_GET_KEY_SERVICE_RETURN {
    std::int32_t status;
    char *name;
};

struct servd_SERV_ENUM_DEPEND_SERVICE {
    std::int32_t handle;
    std::int32_t stateFilter;
    std::int32_t bufferBytes;
};

struct servd_SERV_ENUM_DEPEND_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t bytesNeeded;
    std::int32_t servicesReturned;
    svd_enum_status_list_t *services;
};

struct servd_SERV_QUERY_CONFIG_SERVICE {
    std::int32_t handle;
};

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

struct servd_SERV_CHANGE_CONFIG_SERVICE_RETURN {
    std::int32_t status;
    std::int32_t tag;
};

struct servd_STOP_DAEMON_SERVICE {
    std::int32_t unused;
};

struct servd_STOP_DAEMON_SERVICE_RETURN {
    std::int32_t unused; // never sent
};

inline bool_t CodeField(XDR *xdrs, svd_status_t &status) {
    return CodeFields(xdrs, status.dwServiceType, status.dwCurrentState, status.dwControlsAccepted,
                      status.dwWin32ExitCode, status.dwServiceSpecificExitCode, status.dwCheckPoint, status.dwWaitHint);
}

inline bool_t CodeLink(XDR *xdrs, svd_arglist_t &link) { return CodeField(xdrs, link.arg); }

inline bool_t CodeLink(XDR *xdrs, svd_enum_status_list_t &link) {
    return CodeFields(xdrs, link.name, link.displayName, link.status);
}

bool_t xdr_svd_arglist_t(XDR *xdrs, svd_arglist_t *record);
bool_t xdr_svd_status_t(XDR *xdrs, svd_status_t *record);
bool_t xdr_svd_enum_status_list_t(XDR *xdrs, svd_enum_status_list_t *record);

bool_t xdr_servd_SERV_CONNECT_SERVICE(XDR *xdrs, servd_SERV_CONNECT_SERVICE *record);
bool_t xdr_servd_SERV_CONNECT_SERVICE_RETURN(XDR *xdrs, servd_SERV_CONNECT_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_CREATE_SERVICE(XDR *xdrs, servd_SERV_CREATE_SERVICE *record);
bool_t xdr_servd_SERV_CREATE_SERVICE_RETURN(XDR *xdrs, servd_SERV_CREATE_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_OPEN_SERVICE(XDR *xdrs, servd_SERV_OPEN_SERVICE *record);
bool_t xdr_servd_SERV_OPEN_SERVICE_RETURN(XDR *xdrs, servd_SERV_OPEN_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_DELETE_SERVICE(XDR *xdrs, servd_SERV_DELETE_SERVICE *record);
bool_t xdr_servd_SERV_DELETE_SERVICE_RETURN(XDR *xdrs, servd_SERV_DELETE_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_CLOSE_SERVICE(XDR *xdrs, servd_SERV_CLOSE_SERVICE *record);
bool_t xdr_servd_SERV_CLOSE_SERVICE_RETURN(XDR *xdrs, servd_SERV_CLOSE_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_LOCK_SERVICE(XDR *xdrs, servd_SERV_LOCK_SERVICE *record);
bool_t xdr_servd_SERV_LOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_LOCK_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_UNLOCK_SERVICE(XDR *xdrs, servd_SERV_UNLOCK_SERVICE *record);
bool_t xdr_servd_SERV_UNLOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_UNLOCK_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_QUERY_LOCK_SERVICE(XDR *xdrs, servd_SERV_QUERY_LOCK_SERVICE *record);
bool_t xdr_servd_SERV_QUERY_LOCK_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_LOCK_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_START_SERVICE(XDR *xdrs, servd_SERV_START_SERVICE *record);
bool_t xdr_servd_SERV_START_SERVICE_RETURN(XDR *xdrs, servd_SERV_START_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_CONTROL_SERVICE(XDR *xdrs, servd_SERV_CONTROL_SERVICE *record);
bool_t xdr_servd_SERV_CONTROL_SERVICE_RETURN(XDR *xdrs, servd_SERV_CONTROL_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_SET_STATUS_SERVICE(XDR *xdrs, servd_SERV_SET_STATUS_SERVICE *record);
bool_t xdr_servd_SERV_SET_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_SET_STATUS_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_DUMMY(XDR *xdrs, servd_SERV_DUMMY *record);
bool_t xdr_servd_SERV_DUMMY_RETURN(XDR *xdrs, servd_SERV_DUMMY_RETURN *record);
bool_t xdr_servd_SERV_QUERY_STATUS_SERVICE(XDR *xdrs, servd_SERV_QUERY_STATUS_SERVICE *record);
bool_t xdr_servd_SERV_QUERY_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_STATUS_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_ENUM_STATUS_SERVICE(XDR *xdrs, servd_SERV_ENUM_STATUS_SERVICE *record);
bool_t xdr_servd_SERV_ENUM_STATUS_SERVICE_RETURN(XDR *xdrs, servd_SERV_ENUM_STATUS_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_GET_DISPLAY_SERVICE(XDR *xdrs, servd_SERV_GET_DISPLAY_SERVICE *record);
bool_t xdr_servd_SERV_GET_DISPLAY_SERVICE_RETURN(XDR *xdrs, servd_SERV_GET_DISPLAY_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_GET_KEY_SERVICE(XDR *xdrs, servd_SERV_GET_KEY_SERVICE *record);
bool_t xdr_servd_SERV_GET_KEY_SERVICE_RETURN(XDR *xdrs, servd_SERV_GET_KEY_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_ENUM_DEPEND_SERVICE(XDR *xdrs, servd_SERV_ENUM_DEPEND_SERVICE *record);
bool_t xdr_servd_SERV_ENUM_DEPEND_SERVICE_RETURN(XDR *xdrs, servd_SERV_ENUM_DEPEND_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_QUERY_CONFIG_SERVICE(XDR *xdrs, servd_SERV_QUERY_CONFIG_SERVICE *record);
bool_t xdr_servd_SERV_QUERY_CONFIG_SERVICE_RETURN(XDR *xdrs, servd_SERV_QUERY_CONFIG_SERVICE_RETURN *record);
bool_t xdr_servd_SERV_CHANGE_CONFIG_SERVICE(XDR *xdrs, servd_SERV_CHANGE_CONFIG_SERVICE *record);
bool_t xdr_servd_SERV_CHANGE_CONFIG_SERVICE_RETURN(XDR *xdrs, servd_SERV_CHANGE_CONFIG_SERVICE_RETURN *record);
bool_t xdr_servd_STOP_DAEMON_SERVICE(XDR *xdrs, servd_STOP_DAEMON_SERVICE *record);
bool_t xdr_servd_STOP_DAEMON_SERVICE_RETURN(XDR *xdrs, servd_STOP_DAEMON_SERVICE_RETURN *record);
