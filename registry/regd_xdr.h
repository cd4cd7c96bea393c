// SPDX-License-Identifier: MIT
// regd_xdr: the records of the registry daemon's protocol, program 0x3003003C version 2 over TCP (XDR, RFC 4506).
//
// Members stand in wire order. Every argument record begins with the sender's identity; a key travels without the
// client's connection number in bits 20 to 27; an ...IsNull flag of 1 says that the caller gave no name and that a
// placeholder text stands in its place. Every result is a union: the body is there only when the discriminant is 1.
// A routine that fails to decode leaves the fields before the failure in the record; XDR_FREE releases them.
// Strings and bytes are malloc memory.
#pragma once

#include "rpc/codec.h"

constexpr std::uint32_t REGDAEMONPROG = 0x3003003C;
constexpr std::uint32_t REGDAEMONVERS = 2;

// Procedure numbers of REGDAEMONPROG; 0 is the null procedure, 17 is not used.
enum RegdProcedure : std::uint32_t {
    REG_CLOSE_KEY = 1,
    REG_CREATE_KEY = 2,
    REG_CREATE_KEY_EX = 3,
    REG_DELETE_KEY = 4,
    REG_DELETE_VALUE = 5,
    REG_ENUM_KEY = 6,
    REG_ENUM_KEY_EX = 7,
    REG_ENUM_VALUE = 8,
    REG_FLUSH_KEY = 9,
    REG_GET_KEY_SECURITY = 10,
    REG_LOAD_KEY = 11,
    REG_NOTIFY_CHANGE_KEY_VALUE = 12,
    REG_OPEN_KEY = 13,
    REG_OPEN_KEY_EX = 14,
    REG_QUERY_INFO_KEY = 15,
    REG_QUERY_VALUE = 16,
    REG_QUERY_VALUE_EX = 18,
    REG_REPLACE_KEY = 19,
    REG_RESTORE_KEY = 20,
    REG_SAVE_KEY = 21,
    REG_SET_KEY_SECURITY = 22,
    REG_SET_VALUE = 23,
    REG_SET_VALUE_EX = 24,
    REG_UNLOAD_KEY = 25,
    REG_QUERY_VERSION = 26,
    REG_PING_DAEMON = 27,
};

// The packet version that xdr_regd_USER_DATA speaks; 0 by default. With 1 the identity does not travel at all.
extern std::int32_t g_packetVersion;
// The default user name handed out in packet version 1, remembered so that it is handed out only once.
extern char *g_userNameToFree;

// The identity that opens every argument record.
struct regd_USER_DATA {
    std::uint32_t version; // the client's own protocol level
    std::uint32_t uid;
    char *name;
    std::uint32_t hostid;
};

// A Win32 FILETIME.
struct regd_FILETIME {
    std::uint32_t low;
    std::uint32_t high;
};

// A Win32 SECURITY_ATTRIBUTES without its descriptor, which is not sent.
struct regd_SECURITY_ATTR {
    std::uint32_t length;
    std::int32_t inheritHandle;
};

// Part of no record.
struct regd_REGSAM {
    std::uint16_t first;
    std::uint16_t second;
    std::uint16_t third;
};

struct regd_REG_CLOSE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
};

struct regd_REG_CREATE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint16_t subKeyIsNull;
};

struct regd_REG_CREATE_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *keyClass;
    std::uint32_t options;
    std::uint16_t subKeyIsNull;
    std::uint16_t classIsNull;
};

struct regd_REG_DELETE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};

struct regd_REG_DELETE_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint16_t nameIsNull;
};

struct regd_REG_ENUM_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
};

struct regd_REG_ENUM_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
    std::uint32_t classBytes;
};

struct regd_REG_ENUM_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
    std::uint32_t dataBytes;
};

struct regd_REG_FLUSH_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
};

struct regd_REG_GET_KEY_SEC {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t securityInformation;
    std::uint32_t descriptorBytes;
};

struct regd_REG_LOAD_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *file;
};

struct regd_REG_NOTIFY_CHANGE_KEY_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    std::int32_t watchSubtree;
    std::uint32_t notifyFilter;
    std::uint32_t event;
    std::int32_t asynchronous;
};

struct regd_REG_OPEN_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};

struct regd_REG_OPEN_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t options;
    std::uint16_t subKeyIsNull;
};

struct regd_REG_QUERY_INFO_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t classBytes;
};

struct regd_REG_QUERY_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t dataBytes;
    std::uint16_t subKeyIsNull;
    std::uint16_t dataIsNull;
};

struct regd_REG_QUERY_VALUE_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint32_t dataBytes;
    std::uint16_t nameIsNull;
    std::uint16_t dataIsNull;
};

struct regd_REG_REPLACE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *newFile;
    char *oldFile;
};

struct regd_REG_RESTORE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *file;
    std::uint32_t flags;
};

struct regd_REG_SAVE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *file;
    regd_SECURITY_ATTR securityAttributes;
};

struct regd_REG_SET_KEY_SEC {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t securityInformation;
    std::uint32_t descriptorBytes;
};

struct regd_REG_SET_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t type;
    char *data;
    std::uint32_t dataBytes;
    std::uint16_t subKeyIsNull;
};

struct regd_REG_SET_VALUE_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
    std::uint16_t nameIsNull;
};

struct regd_REG_UNLOAD_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};

struct regd_REG_PING_DAEMON {
    regd_USER_DATA user;
    std::uint32_t processId;
    std::uint32_t mode;
};

struct regd_REG_QUERY_VERSION {
    regd_USER_DATA user;
};

struct regd_BASIC_RETURN {
    std::uint32_t status;
};

struct regd_BASIC_RES {
    std::int32_t discriminant;
    regd_BASIC_RETURN body; // when the discriminant is 1
};

struct regd_REG_CREATE_KEY_RETURN {
    std::uint32_t status;
    std::uint32_t key;
    std::uint32_t disposition;
};

struct regd_REG_CREATE_KEY_RES {
    std::int32_t discriminant;
    regd_REG_CREATE_KEY_RETURN body; // when the discriminant is 1
};

struct regd_REG_OPEN_KEY_RETURN {
    std::uint32_t status;
    std::uint32_t key;
};

struct regd_REG_OPEN_KEY_RES {
    std::int32_t discriminant;
    regd_REG_OPEN_KEY_RETURN body; // when the discriminant is 1
};

struct regd_REG_ENUM_KEY_RETURN {
    std::uint32_t status;
    char *name;
    std::uint32_t nameLength;
    char *keyClass;
    std::uint32_t classLength;
    regd_FILETIME lastWriteTime;
};

struct regd_REG_ENUM_KEY_RES {
    std::int32_t discriminant;
    regd_REG_ENUM_KEY_RETURN body; // when the discriminant is 1
};

struct regd_REG_ENUM_VALUE_RETURN {
    std::uint32_t status;
    char *name;
    std::uint32_t nameLength;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
};

struct regd_REG_ENUM_VALUE_RES {
    std::int32_t discriminant;
    regd_REG_ENUM_VALUE_RETURN body; // when the discriminant is 1
};

struct regd_REG_GET_KEY_SEC_RETURN {
    std::uint32_t status;
    CountedBytes descriptor; // on the wire a string is no different
    std::uint32_t descriptorBytes;
};

struct regd_REG_GET_KEY_SEC_RES {
    std::int32_t discriminant;
    regd_REG_GET_KEY_SEC_RETURN body; // when the discriminant is 1
};

struct regd_REG_QUERY_INFO_KEY_RETURN {
    std::uint32_t status;
    char *keyClass;
    std::uint32_t classLength;
    std::uint32_t reserved;
    std::uint32_t subKeys;
    std::uint32_t maxSubKeyLength;
    std::uint32_t maxClassLength;
    std::uint32_t values;
    std::uint32_t maxValueNameLength;
    std::uint32_t maxValueBytes;
    std::uint32_t securityDescriptorBytes;
    regd_FILETIME lastWriteTime;
    std::uint16_t classIsNull;
};

struct regd_REG_QUERY_INFO_KEY_RES {
    std::int32_t discriminant;
    regd_REG_QUERY_INFO_KEY_RETURN body; // when the discriminant is 1
};

struct regd_REG_QUERY_VALUE_RETURN {
    std::uint32_t status;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
};

struct regd_REG_QUERY_VALUE_RES {
    std::int32_t discriminant;
    regd_REG_QUERY_VALUE_RETURN body; // when the discriminant is 1
};

struct regd_REG_QUERY_VERSION_RETURN {
    std::uint32_t status;
    std::uint32_t major;
    std::uint32_t minor;
    std::uint32_t patch;
};

struct regd_REG_QUERY_VERSION_RES {
    std::int32_t discriminant;
    regd_REG_QUERY_VERSION_RETURN body; // when the discriminant is 1
};

bool_t xdr_regd_USER_DATA(XDR *xdrs, regd_USER_DATA *record);
bool_t xdr_regd_FILETIME(XDR *xdrs, regd_FILETIME *record);
bool_t xdr_regd_SECURITY_ATTR(XDR *xdrs, regd_SECURITY_ATTR *record);
bool_t xdr_regd_REGSAM(XDR *xdrs, regd_REGSAM *record);
bool_t xdr_regd_REG_CLOSE_KEY(XDR *xdrs, regd_REG_CLOSE_KEY *record);
bool_t xdr_regd_REG_CREATE_KEY(XDR *xdrs, regd_REG_CREATE_KEY *record);
bool_t xdr_regd_REG_CREATE_KEY_EX(XDR *xdrs, regd_REG_CREATE_KEY_EX *record);
bool_t xdr_regd_REG_DELETE_KEY(XDR *xdrs, regd_REG_DELETE_KEY *record);
bool_t xdr_regd_REG_DELETE_VALUE(XDR *xdrs, regd_REG_DELETE_VALUE *record);
bool_t xdr_regd_REG_ENUM_KEY(XDR *xdrs, regd_REG_ENUM_KEY *record);
bool_t xdr_regd_REG_ENUM_KEY_EX(XDR *xdrs, regd_REG_ENUM_KEY_EX *record);
bool_t xdr_regd_REG_ENUM_VALUE(XDR *xdrs, regd_REG_ENUM_VALUE *record);
bool_t xdr_regd_REG_FLUSH_KEY(XDR *xdrs, regd_REG_FLUSH_KEY *record);
bool_t xdr_regd_REG_GET_KEY_SEC(XDR *xdrs, regd_REG_GET_KEY_SEC *record);
bool_t xdr_regd_REG_LOAD_KEY(XDR *xdrs, regd_REG_LOAD_KEY *record);
bool_t xdr_regd_REG_NOTIFY_CHANGE_KEY_VALUE(XDR *xdrs, regd_REG_NOTIFY_CHANGE_KEY_VALUE *record);
bool_t xdr_regd_REG_OPEN_KEY(XDR *xdrs, regd_REG_OPEN_KEY *record);
bool_t xdr_regd_REG_OPEN_KEY_EX(XDR *xdrs, regd_REG_OPEN_KEY_EX *record);
bool_t xdr_regd_REG_QUERY_INFO_KEY(XDR *xdrs, regd_REG_QUERY_INFO_KEY *record);
bool_t xdr_regd_REG_QUERY_VALUE(XDR *xdrs, regd_REG_QUERY_VALUE *record);
bool_t xdr_regd_REG_QUERY_VALUE_EX(XDR *xdrs, regd_REG_QUERY_VALUE_EX *record);
bool_t xdr_regd_REG_REPLACE_KEY(XDR *xdrs, regd_REG_REPLACE_KEY *record);
bool_t xdr_regd_REG_RESTORE_KEY(XDR *xdrs, regd_REG_RESTORE_KEY *record);
bool_t xdr_regd_REG_SAVE_KEY(XDR *xdrs, regd_REG_SAVE_KEY *record);
bool_t xdr_regd_REG_SET_KEY_SEC(XDR *xdrs, regd_REG_SET_KEY_SEC *record);
bool_t xdr_regd_REG_SET_VALUE(XDR *xdrs, regd_REG_SET_VALUE *record);
bool_t xdr_regd_REG_SET_VALUE_EX(XDR *xdrs, regd_REG_SET_VALUE_EX *record);
bool_t xdr_regd_REG_UNLOAD_KEY(XDR *xdrs, regd_REG_UNLOAD_KEY *record);
bool_t xdr_regd_REG_PING_DAEMON(XDR *xdrs, regd_REG_PING_DAEMON *record);
bool_t xdr_regd_REG_QUERY_VERSION(XDR *xdrs, regd_REG_QUERY_VERSION *record);
bool_t xdr_regd_BASIC_RETURN(XDR *xdrs, regd_BASIC_RETURN *record);
bool_t xdr_regd_BASIC_RES(XDR *xdrs, regd_BASIC_RES *record);
bool_t xdr_regd_REG_CREATE_KEY_RETURN(XDR *xdrs, regd_REG_CREATE_KEY_RETURN *record);
bool_t xdr_regd_REG_CREATE_KEY_RES(XDR *xdrs, regd_REG_CREATE_KEY_RES *record);
bool_t xdr_regd_REG_OPEN_KEY_RETURN(XDR *xdrs, regd_REG_OPEN_KEY_RETURN *record);
bool_t xdr_regd_REG_OPEN_KEY_RES(XDR *xdrs, regd_REG_OPEN_KEY_RES *record);
bool_t xdr_regd_REG_ENUM_KEY_RETURN(XDR *xdrs, regd_REG_ENUM_KEY_RETURN *record);
bool_t xdr_regd_REG_ENUM_KEY_RES(XDR *xdrs, regd_REG_ENUM_KEY_RES *record);
bool_t xdr_regd_REG_ENUM_VALUE_RETURN(XDR *xdrs, regd_REG_ENUM_VALUE_RETURN *record);
bool_t xdr_regd_REG_ENUM_VALUE_RES(XDR *xdrs, regd_REG_ENUM_VALUE_RES *record);
bool_t xdr_regd_REG_GET_KEY_SEC_RETURN(XDR *xdrs, regd_REG_GET_KEY_SEC_RETURN *record);
bool_t xdr_regd_REG_GET_KEY_SEC_RES(XDR *xdrs, regd_REG_GET_KEY_SEC_RES *record);
bool_t xdr_regd_REG_QUERY_INFO_KEY_RETURN(XDR *xdrs, regd_REG_QUERY_INFO_KEY_RETURN *record);
bool_t xdr_regd_REG_QUERY_INFO_KEY_RES(XDR *xdrs, regd_REG_QUERY_INFO_KEY_RES *record);
bool_t xdr_regd_REG_QUERY_VALUE_RETURN(XDR *xdrs, regd_REG_QUERY_VALUE_RETURN *record);
bool_t xdr_regd_REG_QUERY_VALUE_RES(XDR *xdrs, regd_REG_QUERY_VALUE_RES *record);
bool_t xdr_regd_REG_QUERY_VERSION_RETURN(XDR *xdrs, regd_REG_QUERY_VERSION_RETURN *record);
bool_t xdr_regd_REG_QUERY_VERSION_RES(XDR *xdrs, regd_REG_QUERY_VERSION_RES *record);
