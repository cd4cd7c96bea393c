// SPDX-License-Identifier: MIT
// requests: the arguments of every procedure of the service daemon as bytes, with the places where one can lie.
#pragma once

#include "servd/servd_xdr.h"
#include "tests/support/raw_rpc.h"

#include <iterator>
#include <vector>

// The argument of a procedure, a letter for each field: u a number, s a string, c a char-array, l an argument list.
struct RequestForm {
    std::uint32_t procedure;
    const char *fields;
};

inline constexpr RequestForm requestForms[] = {
    {CONNECT_SERVICE, "s"},
    {CREATE_SERVICE, "ssuuusscsu"},
    {OPEN_SERVICE, "su"},
    {DELETE_SERVICE, "u"},
    {CLOSE_SERVICE, "u"},
    {LOCK_SERVICE, "us"},
    {UNLOCK_SERVICE, "u"},
    {QUERY_LOCK_SERVICE, "u"},
    {START_SERVICE, "ulu"},
    {CONTROL_SERVICE, "uu"},
    {SET_STATUS_SERVICE, "uuuuuuuu"},
    {DUMMY_SERVICE, "u"},
    {QUERY_STATUS_SERVICE, "u"},
    {ENUM_STATUS_SERVICE, "uuuu"},
    {GET_DISPLAY_SERVICE, "s"},
    {GET_KEY_SERVICE, "s"},
    {ENUM_DEPEND_SERVICE, "uuu"},
    {QUERY_CONFIG_SERVICE, "u"},
    {CHANGE_CONFIG_SERVICE, "uuuuccccccu"},
};

struct Request {
    std::string bytes;
    std::vector<std::size_t> numbers; // offsets of the words that are numbers
    std::vector<std::size_t> lengths; // offsets of the words that are lengths
};

// A whole argument: every number is `number`, every text of any kind `text`.
inline Request MakeRequest(const RequestForm &form, std::uint32_t number, const std::string &text) {
    Request request;
    const auto addText = [&] {
        request.lengths.push_back(request.bytes.size());
        request.bytes += XdrString(text);
    };
    for (const char *field = form.fields; *field != '\0'; ++field) {
        switch (*field) {
        case 'u':
            request.numbers.push_back(request.bytes.size());
            request.bytes += Words({number});
            break;
        case 's': addText(); break;
        case 'c':
            request.lengths.push_back(request.bytes.size());
            request.bytes += Words({static_cast<std::uint32_t>(text.size())});
            for (const char character : text) {
                request.bytes += Words({static_cast<std::uint32_t>(character)});
            }
            break;
        default:
            for (int link = 0; link < 2; ++link) {
                request.bytes += Words({1});
                addText();
            }
            request.bytes += Words({0});
        }
    }
    return request;
}

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
