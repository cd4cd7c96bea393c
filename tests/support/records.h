// SPDX-License-Identifier: MIT
// records: every record of the three protocols, by name.
//
//   SERVD_RECORDS    applies TV_RECORD, which whoever uses it defines, to each record of the service daemon's protocol,
//                    lists and status included
//   SERVICE_RECORDS  ... of the protocol spoken to a service process
//   REGD_RECORDS     ... of the registry daemon's protocol
#pragma once

#include "registry/regd_xdr.h"
#include "servd/servd_xdr.h"
#include "servd/service_xdr.h"

#include <string>
#include <utility>

// clang-format off
#define TV_SERVD_PAIR(number, name, handler, Record) TV_RECORD(Record) TV_RECORD(Record##_RETURN)
#define SERVD_RECORDS \
    TV_RECORD(svd_arglist_t) TV_RECORD(svd_status_t) TV_RECORD(svd_enum_status_list_t) SERVD_PROCEDURES(TV_SERVD_PAIR)

#define TV_SERVICE_PAIR(number, name, stub, Record) TV_RECORD(Record##_IN) TV_RECORD(Record##_OUT)
#define SERVICE_RECORDS SERVICE_PROCEDURES(TV_SERVICE_PAIR)

#define TV_REGD_ARGUMENT(number, name, stub, Argument, Result) TV_RECORD(Argument)
#define TV_REGD_RESULT(Name) TV_RECORD(Name##_RETURN) TV_RECORD(Name##_RES)
#define REGD_RECORDS \
    TV_RECORD(regd_USER_DATA) TV_RECORD(regd_FILETIME) TV_RECORD(regd_SECURITY_ATTR) TV_RECORD(regd_REGSAM) \
    REGD_PROCEDURES(TV_REGD_ARGUMENT) REGD_RESULTS(TV_REGD_RESULT)
// clang-format on

// A decoded record that is released at the end of its scope.
template <typename Record>
struct Decoded {
    Record record = {};

    Decoded() = default;
    Decoded(Decoded &&other) noexcept : record(std::exchange(other.record, {})) {}
    Decoded &operator=(Decoded &&) = delete;
    ~Decoded() { FreeRecord(&record); }
    Record *operator->() { return &record; }
    Record &operator*() { return record; }
};

// Text in a record: borrowed, not to be released by the record's routine.
inline char *Text(const char *text) { return const_cast<char *>(text); }
inline CharArray Chars(std::string &chars) { return {static_cast<std::uint32_t>(chars.size()), chars.data()}; }

inline std::string StringOf(const CharArray &array) { return {array.chars, array.count}; }
inline std::string StringOf(const CountedBytes &bytes) { return {bytes.bytes, bytes.count}; }
