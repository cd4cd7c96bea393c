// SPDX-License-Identifier: MIT
// call_trace: names and fields as text.
#include "svcapi/call_trace.h"

#include <atomic>

namespace {

std::atomic<CallTracer> presentTracer;

void AppendQuoted(std::string *text, const std::string &value) {
    *text += '"';
    for (const char c : value) {
        if (c == '"' || c == '\\') *text += '\\';
        *text += c;
    }
    *text += '"';
}

} // namespace

void SetCallTracer(CallTracer tracer) { presentTracer = tracer; }

CallTracer PresentCallTracer() { return presentTracer; }

std::string NameOfProcedure(std::uint32_t number) {
#define SERVD_NAME(procedure, name, handler, Record)                                                                   \
    if (number == (procedure)) return #name;
    SERVD_PROCEDURES(SERVD_NAME)
#undef SERVD_NAME
    return number == NULLPROC ? "NULL" : std::to_string(number);
}

void AppendField(std::string *text, const char *value) { AppendQuoted(text, value != nullptr ? value : ""); }

void AppendField(std::string *text, const CharArray &value) {
    AppendQuoted(text, value.count == 0 ? "" : std::string(value.chars, value.count));
}

void AppendField(std::string *text, const svd_arglist_t *value) {
    *text += '[';
    for (const char *separator = ""; value != nullptr; value = value->next, separator = ", ") {
        *text += separator;
        AppendField(text, value->arg);
    }
    *text += ']';
}
