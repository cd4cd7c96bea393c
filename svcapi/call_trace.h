// SPDX-License-Identifier: MIT
// call_trace: the calls to the daemon as text, for whoever wants to watch them.
//
// Without a tracer a call costs one look at a pointer.
#pragma once

#include "servd/servd_xdr.h"
#include "tv/wintypes.h"

#include <optional>
#include <string>
#include <type_traits>

struct TracedCall {
    std::string name;                   // "OPEN_SERVICE", or "dial" for a connection
    std::string arguments;              // in wire order; texts quoted, what is no text of people's in them as it is
    DWORD code = 0;                     // of the call: 0, or why there is no answer
    std::optional<std::int32_t> status; // the answer's own code, where it has one
    double milliseconds = 0;
};

// Called in the thread of the call, after it; null for none. It must not make a call itself.
using CallTracer = void (*)(const TracedCall &call);
void SetCallTracer(CallTracer tracer);
[[nodiscard]] CallTracer PresentCallTracer();

// "CONTROL_SERVICE", or the number of one that is none.
[[nodiscard]] std::string NameOfProcedure(std::uint32_t number);

// --- a record as text ---

void AppendField(std::string *text, const char *value); // null as an empty text
void AppendField(std::string *text, const CharArray &value);
void AppendField(std::string *text, const svd_arglist_t *value);

template <typename Word>
requires std::is_integral_v<Word>
void AppendField(std::string *text, Word value) { *text += std::to_string(value); }

template <HasFields Record>
std::string FieldsText(const Record &record) {
    std::string text;
    VisitFields(record, [&text](const auto &field) {
        if (!text.empty()) text += ", ";
        AppendField(&text, field);
    });
    return text;
}

template <HasFields Record>
void AppendField(std::string *text, const Record &record) {
    *text += '{' + FieldsText(record) + '}';
}

// The records with no fields have no text.
template <typename Record>
std::string TextOfRecord(const Record &record) {
    if constexpr (HasFields<const Record>) {
        return FieldsText(record);
    } else {
        return "";
    }
}

template <typename Record>
std::optional<std::int32_t> StatusIn(const Record &record) {
    if constexpr (requires { record.status; }) {
        return record.status;
    } else {
        return std::nullopt;
    }
}
