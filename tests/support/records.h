// SPDX-License-Identifier: MIT
// records: every record of the three protocols, by name.
//
//   SERVD_RECORDS(X)    applies X to each record of the service daemon's protocol, lists and status included
//   SERVICE_RECORDS(X)  ... of the protocol spoken to a service process
//   REGD_RECORDS(X)     ... of the registry daemon's protocol
//   routineOf<Record>   the record's own routine
#pragma once

#include "registry/regd_xdr.h"
#include "servd/servd_xdr.h"
#include "servd/service_xdr.h"

#include <string>
#include <utility>

// clang-format off
#define SERVD_RECORDS(X) \
    X(svd_arglist_t) \
    X(svd_status_t) \
    X(svd_enum_status_list_t) \
    X(servd_SERV_CONNECT_SERVICE) \
    X(servd_SERV_CONNECT_SERVICE_RETURN) \
    X(servd_SERV_CREATE_SERVICE) \
    X(servd_SERV_CREATE_SERVICE_RETURN) \
    X(servd_SERV_OPEN_SERVICE) \
    X(servd_SERV_OPEN_SERVICE_RETURN) \
    X(servd_SERV_DELETE_SERVICE) \
    X(servd_SERV_DELETE_SERVICE_RETURN) \
    X(servd_SERV_CLOSE_SERVICE) \
    X(servd_SERV_CLOSE_SERVICE_RETURN) \
    X(servd_SERV_LOCK_SERVICE) \
    X(servd_SERV_LOCK_SERVICE_RETURN) \
    X(servd_SERV_UNLOCK_SERVICE) \
    X(servd_SERV_UNLOCK_SERVICE_RETURN) \
    X(servd_SERV_QUERY_LOCK_SERVICE) \
    X(servd_SERV_QUERY_LOCK_SERVICE_RETURN) \
    X(servd_SERV_START_SERVICE) \
    X(servd_SERV_START_SERVICE_RETURN) \
    X(servd_SERV_CONTROL_SERVICE) \
    X(servd_SERV_CONTROL_SERVICE_RETURN) \
    X(servd_SERV_SET_STATUS_SERVICE) \
    X(servd_SERV_SET_STATUS_SERVICE_RETURN) \
    X(servd_SERV_DUMMY) \
    X(servd_SERV_DUMMY_RETURN) \
    X(servd_SERV_QUERY_STATUS_SERVICE) \
    X(servd_SERV_QUERY_STATUS_SERVICE_RETURN) \
    X(servd_SERV_ENUM_STATUS_SERVICE) \
    X(servd_SERV_ENUM_STATUS_SERVICE_RETURN) \
    X(servd_SERV_GET_DISPLAY_SERVICE) \
    X(servd_SERV_GET_DISPLAY_SERVICE_RETURN) \
    X(servd_SERV_GET_KEY_SERVICE) \
    X(servd_SERV_GET_KEY_SERVICE_RETURN) \
    X(servd_SERV_ENUM_DEPEND_SERVICE) \
    X(servd_SERV_ENUM_DEPEND_SERVICE_RETURN) \
    X(servd_SERV_QUERY_CONFIG_SERVICE) \
    X(servd_SERV_QUERY_CONFIG_SERVICE_RETURN) \
    X(servd_SERV_CHANGE_CONFIG_SERVICE) \
    X(servd_SERV_CHANGE_CONFIG_SERVICE_RETURN) \
    X(servd_STOP_DAEMON_SERVICE) \
    X(servd_STOP_DAEMON_SERVICE_RETURN)

#define SERVICE_RECORDS(X) \
    X(service_START_SERVICE_IN) \
    X(service_START_SERVICE_OUT) \
    X(service_CONTROL_SERVICE_IN) \
    X(service_CONTROL_SERVICE_OUT) \
    X(service_DUMMY_IN) \
    X(service_DUMMY_OUT)

#define REGD_RECORDS(X) \
    X(regd_USER_DATA) \
    X(regd_FILETIME) \
    X(regd_SECURITY_ATTR) \
    X(regd_REGSAM) \
    X(regd_REG_CLOSE_KEY) \
    X(regd_REG_CREATE_KEY) \
    X(regd_REG_CREATE_KEY_EX) \
    X(regd_REG_DELETE_KEY) \
    X(regd_REG_DELETE_VALUE) \
    X(regd_REG_ENUM_KEY) \
    X(regd_REG_ENUM_KEY_EX) \
    X(regd_REG_ENUM_VALUE) \
    X(regd_REG_FLUSH_KEY) \
    X(regd_REG_GET_KEY_SEC) \
    X(regd_REG_LOAD_KEY) \
    X(regd_REG_NOTIFY_CHANGE_KEY_VALUE) \
    X(regd_REG_OPEN_KEY) \
    X(regd_REG_OPEN_KEY_EX) \
    X(regd_REG_QUERY_INFO_KEY) \
    X(regd_REG_QUERY_VALUE) \
    X(regd_REG_QUERY_VALUE_EX) \
    X(regd_REG_REPLACE_KEY) \
    X(regd_REG_RESTORE_KEY) \
    X(regd_REG_SAVE_KEY) \
    X(regd_REG_SET_KEY_SEC) \
    X(regd_REG_SET_VALUE) \
    X(regd_REG_SET_VALUE_EX) \
    X(regd_REG_UNLOAD_KEY) \
    X(regd_REG_PING_DAEMON) \
    X(regd_REG_QUERY_VERSION) \
    X(regd_BASIC_RETURN) \
    X(regd_BASIC_RES) \
    X(regd_REG_CREATE_KEY_RETURN) \
    X(regd_REG_CREATE_KEY_RES) \
    X(regd_REG_OPEN_KEY_RETURN) \
    X(regd_REG_OPEN_KEY_RES) \
    X(regd_REG_ENUM_KEY_RETURN) \
    X(regd_REG_ENUM_KEY_RES) \
    X(regd_REG_ENUM_VALUE_RETURN) \
    X(regd_REG_ENUM_VALUE_RES) \
    X(regd_REG_GET_KEY_SEC_RETURN) \
    X(regd_REG_GET_KEY_SEC_RES) \
    X(regd_REG_QUERY_INFO_KEY_RETURN) \
    X(regd_REG_QUERY_INFO_KEY_RES) \
    X(regd_REG_QUERY_VALUE_RETURN) \
    X(regd_REG_QUERY_VALUE_RES) \
    X(regd_REG_QUERY_VERSION_RETURN) \
    X(regd_REG_QUERY_VERSION_RES)

// clang-format on

template <typename Record>
inline constexpr bool_t (*routineOf)(XDR *, Record *) = nullptr;

#define TV_ROUTINE_OF(Record)                                                                                          \
    template <>                                                                                                        \
    inline constexpr bool_t (*routineOf<Record>)(XDR *, Record *) = xdr_##Record;
SERVD_RECORDS(TV_ROUTINE_OF)
SERVICE_RECORDS(TV_ROUTINE_OF)
REGD_RECORDS(TV_ROUTINE_OF)
#undef TV_ROUTINE_OF

// Releases what a record holds.
template <typename Record>
void ReleaseRecord(Record &record) {
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    (void)routineOf<Record>(&xdrs, &record);
}

// A decoded record that is released at the end of its scope.
template <typename Record>
struct Decoded {
    Record record = {};

    Decoded() = default;
    Decoded(Decoded &&other) noexcept : record(std::exchange(other.record, {})) {}
    Decoded &operator=(Decoded &&) = delete;
    ~Decoded() { ReleaseRecord(record); }
    Record *operator->() { return &record; }
    Record &operator*() { return record; }
};

// Text in a record: borrowed, not to be released by the record's routine.
inline char *Text(const char *text) { return const_cast<char *>(text); }
inline CharArray Chars(std::string &chars) { return {static_cast<std::uint32_t>(chars.size()), chars.data()}; }

inline std::string StringOf(const CharArray &array) { return {array.chars, array.count}; }
inline std::string StringOf(const CountedBytes &bytes) { return {bytes.bytes, bytes.count}; }
