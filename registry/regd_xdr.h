// SPDX-License-Identifier: MIT
// regd_xdr: the registry daemon's protocol, program 0x3003003C version 2 over TCP (XDR, RFC 4506): its procedures and
// their records.
//
// Members stand in wire order. Every argument record begins with the sender's identity; a key travels without the
// client's connection number in bits 20 to 27; an ...IsNull flag of 1 says that the caller gave no name and that a
// placeholder text stands in its place. Every result is a union: the body is there only when the discriminant is 1.
// A routine that fails to decode leaves the fields before the failure in the record; FreeRecord releases them.
// Strings and bytes are malloc memory.
#pragma once

#include "rpc/procedure.h"

constexpr std::uint32_t REGDAEMONPROG = 0x3003003C;
constexpr std::uint32_t REGDAEMONVERS = 2;

// The procedures: number, its name, the client's stub, the argument and the result record. 0 is the null procedure, 17
// is not used.
// clang-format off
#define REGD_PROCEDURES(X) \
    X(1, REG_CLOSE_KEY, reg_close_key_2, regd_REG_CLOSE_KEY, regd_BASIC_RES) \
    X(2, REG_CREATE_KEY, reg_create_key_2, regd_REG_CREATE_KEY, regd_REG_CREATE_KEY_RES) \
    X(3, REG_CREATE_KEY_EX, reg_create_key_ex_2, regd_REG_CREATE_KEY_EX, regd_REG_CREATE_KEY_RES) \
    X(4, REG_DELETE_KEY, reg_delete_key_2, regd_REG_DELETE_KEY, regd_BASIC_RES) \
    X(5, REG_DELETE_VALUE, reg_delete_value_2, regd_REG_DELETE_VALUE, regd_BASIC_RES) \
    X(6, REG_ENUM_KEY, reg_enum_key_2, regd_REG_ENUM_KEY, regd_REG_ENUM_KEY_RES) \
    X(7, REG_ENUM_KEY_EX, reg_enum_key_ex_2, regd_REG_ENUM_KEY_EX, regd_REG_ENUM_KEY_RES) \
    X(8, REG_ENUM_VALUE, reg_enum_value_2, regd_REG_ENUM_VALUE, regd_REG_ENUM_VALUE_RES) \
    X(9, REG_FLUSH_KEY, reg_flush_key_2, regd_REG_FLUSH_KEY, regd_BASIC_RES) \
    X(10, REG_GET_KEY_SECURITY, reg_get_key_security_2, regd_REG_GET_KEY_SEC, regd_REG_GET_KEY_SEC_RES) \
    X(11, REG_LOAD_KEY, reg_load_key_2, regd_REG_LOAD_KEY, regd_BASIC_RES) \
    X(12, REG_NOTIFY_CHANGE_KEY_VALUE, reg_notify_change_key_value_2, regd_REG_NOTIFY_CHANGE_KEY_VALUE, regd_BASIC_RES) \
    X(13, REG_OPEN_KEY, reg_open_key_2, regd_REG_OPEN_KEY, regd_REG_OPEN_KEY_RES) \
    X(14, REG_OPEN_KEY_EX, reg_open_key_ex_2, regd_REG_OPEN_KEY_EX, regd_REG_OPEN_KEY_RES) \
    X(15, REG_QUERY_INFO_KEY, reg_query_info_key_2, regd_REG_QUERY_INFO_KEY, regd_REG_QUERY_INFO_KEY_RES) \
    X(16, REG_QUERY_VALUE, reg_query_value_2, regd_REG_QUERY_VALUE, regd_REG_QUERY_VALUE_RES) \
    X(18, REG_QUERY_VALUE_EX, reg_query_value_ex_2, regd_REG_QUERY_VALUE_EX, regd_REG_QUERY_VALUE_RES) \
    X(19, REG_REPLACE_KEY, reg_replace_key_2, regd_REG_REPLACE_KEY, regd_BASIC_RES) \
    X(20, REG_RESTORE_KEY, reg_restore_key_2, regd_REG_RESTORE_KEY, regd_BASIC_RES) \
    X(21, REG_SAVE_KEY, reg_save_key_2, regd_REG_SAVE_KEY, regd_BASIC_RES) \
    X(22, REG_SET_KEY_SECURITY, reg_set_key_security_2, regd_REG_SET_KEY_SEC, regd_BASIC_RES) \
    X(23, REG_SET_VALUE, reg_set_value_2, regd_REG_SET_VALUE, regd_BASIC_RES) \
    X(24, REG_SET_VALUE_EX, reg_set_value_ex_2, regd_REG_SET_VALUE_EX, regd_BASIC_RES) \
    X(25, REG_UNLOAD_KEY, reg_unload_key_2, regd_REG_UNLOAD_KEY, regd_BASIC_RES) \
    X(26, REG_QUERY_VERSION, reg_query_version_2, regd_REG_QUERY_VERSION, regd_REG_QUERY_VERSION_RES) \
    X(27, REG_PING_DAEMON, reg_ping_daemon_2, regd_REG_PING_DAEMON, regd_BASIC_RES)
// clang-format on

#define REGD_NUMBER(number, name, stub, Argument, Result) name = number,
enum RegdProcedure : std::uint32_t { REGD_PROCEDURES(REGD_NUMBER) };
#undef REGD_NUMBER

// The packet version that xdr_regd_USER_DATA speaks; 0 by default. With 1 the identity does not travel at all.
extern std::int32_t g_packetVersion;
// The default user name handed out in packet version 1, remembered so that it is handed out only once.
extern char *g_userNameToFree;

// --- parts of records ---

// The identity that opens every argument record.
struct regd_USER_DATA {
    std::uint32_t version; // the client's own protocol level
    std::uint32_t uid;
    char *name;
    std::uint32_t hostid;
};
constexpr auto Fields(As<regd_USER_DATA> auto &r) { return std::tie(r.version, r.uid, r.name, r.hostid); }
bool_t CodeField(XDR *xdrs, regd_USER_DATA &user); // in either packet version

// A Win32 FILETIME.
struct regd_FILETIME {
    std::uint32_t low;
    std::uint32_t high;
};
constexpr auto Fields(As<regd_FILETIME> auto &r) { return std::tie(r.low, r.high); }

// A Win32 SECURITY_ATTRIBUTES without its descriptor, which is not sent.
struct regd_SECURITY_ATTR {
    std::uint32_t length;
    std::int32_t inheritHandle;
};
constexpr auto Fields(As<regd_SECURITY_ATTR> auto &r) { return std::tie(r.length, r.inheritHandle); }

// Part of no record.
struct regd_REGSAM {
    std::uint16_t first;
    std::uint16_t second;
    std::uint16_t third;
};
constexpr auto Fields(As<regd_REGSAM> auto &r) { return std::tie(r.first, r.second, r.third); }

// --- arguments ---

struct regd_REG_CLOSE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
};
constexpr auto Fields(As<regd_REG_CLOSE_KEY> auto &r) { return std::tie(r.user, r.key); }

struct regd_REG_CREATE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint16_t subKeyIsNull;
};
constexpr auto Fields(As<regd_REG_CREATE_KEY> auto &r) { return std::tie(r.user, r.key, r.subKey, r.subKeyIsNull); }

struct regd_REG_CREATE_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *keyClass;
    std::uint32_t options;
    std::uint16_t subKeyIsNull;
    std::uint16_t classIsNull;
};
constexpr auto Fields(As<regd_REG_CREATE_KEY_EX> auto &r) {
    return std::tie(r.user, r.key, r.subKey, r.keyClass, r.options, r.subKeyIsNull, r.classIsNull);
}

struct regd_REG_DELETE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};
constexpr auto Fields(As<regd_REG_DELETE_KEY> auto &r) { return std::tie(r.user, r.key, r.subKey); }

struct regd_REG_DELETE_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint16_t nameIsNull;
};
constexpr auto Fields(As<regd_REG_DELETE_VALUE> auto &r) { return std::tie(r.user, r.key, r.valueName, r.nameIsNull); }

struct regd_REG_ENUM_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
};
constexpr auto Fields(As<regd_REG_ENUM_KEY> auto &r) { return std::tie(r.user, r.key, r.index, r.nameBytes); }

struct regd_REG_ENUM_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
    std::uint32_t classBytes;
};
constexpr auto Fields(As<regd_REG_ENUM_KEY_EX> auto &r) {
    return std::tie(r.user, r.key, r.index, r.nameBytes, r.classBytes);
}

struct regd_REG_ENUM_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t index;
    std::uint32_t nameBytes;
    std::uint32_t dataBytes;
};
constexpr auto Fields(As<regd_REG_ENUM_VALUE> auto &r) {
    return std::tie(r.user, r.key, r.index, r.nameBytes, r.dataBytes);
}

struct regd_REG_FLUSH_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
};
constexpr auto Fields(As<regd_REG_FLUSH_KEY> auto &r) { return std::tie(r.user, r.key); }

struct regd_REG_GET_KEY_SEC {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t securityInformation;
    std::uint32_t descriptorBytes;
};
constexpr auto Fields(As<regd_REG_GET_KEY_SEC> auto &r) {
    return std::tie(r.user, r.key, r.securityInformation, r.descriptorBytes);
}

struct regd_REG_LOAD_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *file;
};
constexpr auto Fields(As<regd_REG_LOAD_KEY> auto &r) { return std::tie(r.user, r.key, r.subKey, r.file); }

struct regd_REG_NOTIFY_CHANGE_KEY_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    std::int32_t watchSubtree;
    std::uint32_t notifyFilter;
    std::uint32_t event;
    std::int32_t asynchronous;
};
constexpr auto Fields(As<regd_REG_NOTIFY_CHANGE_KEY_VALUE> auto &r) {
    return std::tie(r.user, r.key, r.watchSubtree, r.notifyFilter, r.event, r.asynchronous);
}

struct regd_REG_OPEN_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};
constexpr auto Fields(As<regd_REG_OPEN_KEY> auto &r) { return std::tie(r.user, r.key, r.subKey); }

struct regd_REG_OPEN_KEY_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t options;
    std::uint16_t subKeyIsNull;
};
constexpr auto Fields(As<regd_REG_OPEN_KEY_EX> auto &r) {
    return std::tie(r.user, r.key, r.subKey, r.options, r.subKeyIsNull);
}

struct regd_REG_QUERY_INFO_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t classBytes;
};
constexpr auto Fields(As<regd_REG_QUERY_INFO_KEY> auto &r) { return std::tie(r.user, r.key, r.classBytes); }

struct regd_REG_QUERY_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t dataBytes;
    std::uint16_t subKeyIsNull;
    std::uint16_t dataIsNull;
};
constexpr auto Fields(As<regd_REG_QUERY_VALUE> auto &r) {
    return std::tie(r.user, r.key, r.subKey, r.dataBytes, r.subKeyIsNull, r.dataIsNull);
}

struct regd_REG_QUERY_VALUE_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint32_t dataBytes;
    std::uint16_t nameIsNull;
    std::uint16_t dataIsNull;
};
constexpr auto Fields(As<regd_REG_QUERY_VALUE_EX> auto &r) {
    return std::tie(r.user, r.key, r.valueName, r.dataBytes, r.nameIsNull, r.dataIsNull);
}

struct regd_REG_REPLACE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    char *newFile;
    char *oldFile;
};
constexpr auto Fields(As<regd_REG_REPLACE_KEY> auto &r) {
    return std::tie(r.user, r.key, r.subKey, r.newFile, r.oldFile);
}

struct regd_REG_RESTORE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *file;
    std::uint32_t flags;
};
constexpr auto Fields(As<regd_REG_RESTORE_KEY> auto &r) { return std::tie(r.user, r.key, r.file, r.flags); }

struct regd_REG_SAVE_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *file;
    regd_SECURITY_ATTR securityAttributes;
};
constexpr auto Fields(As<regd_REG_SAVE_KEY> auto &r) { return std::tie(r.user, r.key, r.file, r.securityAttributes); }

struct regd_REG_SET_KEY_SEC {
    regd_USER_DATA user;
    std::uint32_t key;
    std::uint32_t securityInformation;
    std::uint32_t descriptorBytes;
};
constexpr auto Fields(As<regd_REG_SET_KEY_SEC> auto &r) {
    return std::tie(r.user, r.key, r.securityInformation, r.descriptorBytes);
}

struct regd_REG_SET_VALUE {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
    std::uint32_t type;
    char *data;
    std::uint32_t dataBytes;
    std::uint16_t subKeyIsNull;
};
constexpr auto Fields(As<regd_REG_SET_VALUE> auto &r) {
    return std::tie(r.user, r.key, r.subKey, r.type, r.data, r.dataBytes, r.subKeyIsNull);
}

struct regd_REG_SET_VALUE_EX {
    regd_USER_DATA user;
    std::uint32_t key;
    char *valueName;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
    std::uint16_t nameIsNull;
};
constexpr auto Fields(As<regd_REG_SET_VALUE_EX> auto &r) {
    return std::tie(r.user, r.key, r.valueName, r.type, r.data, r.dataBytes, r.nameIsNull);
}

struct regd_REG_UNLOAD_KEY {
    regd_USER_DATA user;
    std::uint32_t key;
    char *subKey;
};
constexpr auto Fields(As<regd_REG_UNLOAD_KEY> auto &r) { return std::tie(r.user, r.key, r.subKey); }

struct regd_REG_PING_DAEMON {
    regd_USER_DATA user;
    std::uint32_t processId;
    std::uint32_t mode;
};
constexpr auto Fields(As<regd_REG_PING_DAEMON> auto &r) { return std::tie(r.user, r.processId, r.mode); }

struct regd_REG_QUERY_VERSION {
    regd_USER_DATA user;
};
constexpr auto Fields(As<regd_REG_QUERY_VERSION> auto &r) { return std::tie(r.user); }

// --- results ---

// What every procedure answers. Any discriminant other than 1 has no body; the client reads the body without asking, so
// it stays as it was.
template <typename Body>
struct RegdResult {
    std::int32_t discriminant;
    Body body; // when the discriminant is 1
};
template <typename Body>
bool_t CodeField(XDR *xdrs, RegdResult<Body> &result) {
    if (!CodeField(xdrs, result.discriminant)) return FALSE;
    return result.discriminant == 1 ? CodeField(xdrs, result.body) : TRUE;
}

struct regd_BASIC_RETURN {
    std::uint32_t status;
};
constexpr auto Fields(As<regd_BASIC_RETURN> auto &r) { return std::tie(r.status); }

struct regd_REG_CREATE_KEY_RETURN {
    std::uint32_t status;
    std::uint32_t key;
    std::uint32_t disposition;
};
constexpr auto Fields(As<regd_REG_CREATE_KEY_RETURN> auto &r) { return std::tie(r.status, r.key, r.disposition); }

struct regd_REG_OPEN_KEY_RETURN {
    std::uint32_t status;
    std::uint32_t key;
};
constexpr auto Fields(As<regd_REG_OPEN_KEY_RETURN> auto &r) { return std::tie(r.status, r.key); }

struct regd_REG_ENUM_KEY_RETURN {
    std::uint32_t status;
    char *name;
    std::uint32_t nameLength;
    char *keyClass;
    std::uint32_t classLength;
    regd_FILETIME lastWriteTime;
};
constexpr auto Fields(As<regd_REG_ENUM_KEY_RETURN> auto &r) {
    return std::tie(r.status, r.name, r.nameLength, r.keyClass, r.classLength, r.lastWriteTime);
}

struct regd_REG_ENUM_VALUE_RETURN {
    std::uint32_t status;
    char *name;
    std::uint32_t nameLength;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
};
constexpr auto Fields(As<regd_REG_ENUM_VALUE_RETURN> auto &r) {
    return std::tie(r.status, r.name, r.nameLength, r.type, r.data, r.dataBytes);
}

struct regd_REG_GET_KEY_SEC_RETURN {
    std::uint32_t status;
    CountedBytes descriptor; // on the wire a string is no different
    std::uint32_t descriptorBytes;
};
constexpr auto Fields(As<regd_REG_GET_KEY_SEC_RETURN> auto &r) {
    return std::tie(r.status, r.descriptor, r.descriptorBytes);
}

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
constexpr auto Fields(As<regd_REG_QUERY_INFO_KEY_RETURN> auto &r) {
    return std::tie(r.status, r.keyClass, r.classLength, r.reserved, r.subKeys, r.maxSubKeyLength, r.maxClassLength,
                    r.values, r.maxValueNameLength, r.maxValueBytes, r.securityDescriptorBytes, r.lastWriteTime,
                    r.classIsNull);
}

struct regd_REG_QUERY_VALUE_RETURN {
    std::uint32_t status;
    std::uint32_t type;
    CountedBytes data;
    std::uint32_t dataBytes;
};
constexpr auto Fields(As<regd_REG_QUERY_VALUE_RETURN> auto &r) {
    return std::tie(r.status, r.type, r.data, r.dataBytes);
}

struct regd_REG_QUERY_VERSION_RETURN {
    std::uint32_t status;
    std::uint32_t major;
    std::uint32_t minor;
    std::uint32_t patch;
};
constexpr auto Fields(As<regd_REG_QUERY_VERSION_RETURN> auto &r) {
    return std::tie(r.status, r.major, r.minor, r.patch);
}

// The results by name, without _RETURN for the body and _RES for the union.
#define REGD_RESULTS(X)                                                                                                \
    X(regd_BASIC)                                                                                                      \
    X(regd_REG_CREATE_KEY)                                                                                             \
    X(regd_REG_OPEN_KEY)                                                                                               \
    X(regd_REG_ENUM_KEY)                                                                                               \
    X(regd_REG_ENUM_VALUE)                                                                                             \
    X(regd_REG_GET_KEY_SEC)                                                                                            \
    X(regd_REG_QUERY_INFO_KEY)                                                                                         \
    X(regd_REG_QUERY_VALUE)                                                                                            \
    X(regd_REG_QUERY_VERSION)

// --- routines ---

TV_ROUTINE(regd_USER_DATA)
TV_ROUTINE(regd_FILETIME)
TV_ROUTINE(regd_SECURITY_ATTR)
TV_ROUTINE(regd_REGSAM)

#define REGD_DECLARE_RESULT(Name)                                                                                      \
    using Name##_RES = RegdResult<Name##_RETURN>;                                                                      \
    TV_ROUTINE(Name##_RETURN)                                                                                          \
    TV_ROUTINE(Name##_RES)
REGD_RESULTS(REGD_DECLARE_RESULT)
#undef REGD_DECLARE_RESULT

#define REGD_DECLARE(number, name, stub, Argument, Result)                                                             \
    TV_ROUTINE(Argument)                                                                                               \
    TV_PROCEDURE(number, Argument, Result)
REGD_PROCEDURES(REGD_DECLARE)
#undef REGD_DECLARE
