// SPDX-License-Identifier: MIT
// requests: the arguments of every procedure of the service daemon as bytes, with the places where one can lie.
#pragma once

#include "servd/servd_xdr.h"
#include "tests/support/raw_rpc.h"

#include <type_traits>
#include <vector>

struct Request {
    std::string bytes;
    std::vector<std::size_t> numbers; // offsets of the words that are numbers
    std::vector<std::size_t> lengths; // offsets of the words that are lengths
};

inline void AppendNumber(Request *request, std::uint32_t number) {
    request->numbers.push_back(request->bytes.size());
    request->bytes += Words({number});
}

inline void AppendText(Request *request, const std::string &text) {
    request->lengths.push_back(request->bytes.size());
    request->bytes += XdrString(text);
}

inline void AppendCharacters(Request *request, const std::string &text) {
    request->lengths.push_back(request->bytes.size());
    request->bytes += Words({static_cast<std::uint32_t>(text.size())});
    for (const char character : text) {
        request->bytes += Words({static_cast<std::uint32_t>(character)});
    }
}

// A whole record: every number is `number`, every text of any kind `text`, every list two links long.
template <typename Record>
void AppendRecord(Request *request, std::uint32_t number, const std::string &text) {
    Record record = {};
    VisitFields(record, [&]<typename Field>(Field &) {
        if constexpr (std::is_integral_v<Field>) {
            AppendNumber(request, number);
        } else if constexpr (std::is_same_v<Field, char *>) {
            AppendText(request, text);
        } else if constexpr (std::is_same_v<Field, CharArray>) {
            AppendCharacters(request, text);
        } else if constexpr (std::is_pointer_v<Field>) {
            for (int link = 0; link < 2; ++link) {
                request->bytes += Words({1});
                AppendRecord<std::remove_pointer_t<Field>>(request, number, text);
            }
            request->bytes += Words({0});
        } else {
            AppendRecord<Field>(request, number, text);
        }
    });
}

template <typename Argument>
Request MakeRequest(std::uint32_t number, const std::string &text) {
    Request request;
    AppendRecord<Argument>(&request, number, text);
    return request;
}

struct RequestForm {
    std::uint32_t procedure;
    Request (*make)(std::uint32_t number, const std::string &text);
};

// Of every procedure but the one that ends the daemon.
#define TV_REQUEST_FORM(number, name, handler, Argument) {name, MakeRequest<Argument>},
inline const std::vector<RequestForm> requestForms = [] {
    std::vector<RequestForm> forms = {SERVD_PROCEDURES(TV_REQUEST_FORM)};
    std::erase_if(forms, [](const RequestForm &form) { return form.procedure == STOP_DAEMON_SERVICE; });
    return forms;
}();
#undef TV_REQUEST_FORM

inline std::string ServdCall(std::uint32_t procedure, const std::string &argument, std::uint32_t xid = 77) {
    return raw::Call(xid, SERVDAEMONPROG, SERVDAEMONVERS, procedure, argument);
}

// The answer of a call that was accepted and gave a result of these bytes.
inline std::string ServdAnswer(const std::string &result, std::uint32_t xid = 77) {
    return Words({xid, REPLY, MSG_ACCEPTED, AUTH_NONE, 0, SUCCESS}) + result;
}

inline std::string ServdFailure(accept_stat status, std::uint32_t xid = 77) {
    return Words({xid, REPLY, MSG_ACCEPTED, AUTH_NONE, 0, static_cast<std::uint32_t>(status)});
}
