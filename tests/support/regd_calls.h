// SPDX-License-Identifier: MIT
// regd_calls: calls of the registry daemon by hand, so that many are under way at once, and its answers.
#pragma once

#include "registry/regd_xdr.h"
#include "tests/support/raw_rpc.h"
#include "tests/support/xdr_bytes.h"
#include "tv/winreg.h"

#include <gtest/gtest.h>

namespace raw {

inline std::string RegdCall(std::uint32_t procedure, std::uint32_t key, const std::string &fields, std::uint32_t xid) {
    const std::string identity = Words({6, 0}) + XdrString("root") + Words({0});
    return AsMessage(raw::Call(xid, REGDAEMONPROG, REGDAEMONVERS, procedure, identity + Words({key}) + fields));
}
inline std::string SetCall(std::uint32_t key, const std::string &name, const std::string &data, std::uint32_t xid) {
    const auto bytes = static_cast<std::uint32_t>(data.size());
    return RegdCall(REG_SET_VALUE_EX, key, XdrString(name) + Words({REG_BINARY}) + XdrString(data) + Words({bytes, 0}),
                    xid);
}
inline std::string QueryCall(std::uint32_t key, const std::string &name, std::uint32_t xid) {
    return RegdCall(REG_QUERY_VALUE_EX, key, XdrString(name) + Words({1 << 24, 0, 0}), xid);
}
inline std::string CreateCall(std::uint32_t key, const std::string &path, std::uint32_t xid) {
    return RegdCall(REG_CREATE_KEY, key, XdrString(path) + Words({0}), xid);
}
inline std::string DeleteCall(std::uint32_t key, const std::string &path, std::uint32_t xid) {
    return RegdCall(REG_DELETE_KEY, key, XdrString(path), xid);
}

struct Answer {
    std::uint32_t xid = 0;
    std::uint32_t status = UINT32_MAX; // that: no answer
    std::string rest;                  // behind the status
};
inline Answer ReadAnswer(const Socket &socket) {
    const std::string message = ReadMessage(socket);
    if (message.size() < 32) return {};
    EXPECT_EQ(WordOf(message, 6), 1u);
    return {WordOf(message, 0), WordOf(message, 7), message.substr(32)};
}
// The data of an answered query.
inline std::string DataOf(const Answer &answer) { return answer.rest.substr(8, WordOf(answer.rest, 1)); }

} // namespace raw
