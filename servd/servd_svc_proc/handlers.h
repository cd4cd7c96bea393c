// SPDX-License-Identifier: MIT
// handlers: the answers to the daemon's procedures, one for each.
#pragma once

#include "servd/servd_xdr.h"

// What the handler of a procedure answers with: its result, or what encodes to the same bytes.
template <typename Argument>
struct HandlerOf {
    using Reply = ResultOf<Argument>;
};
template <>
struct HandlerOf<servd_SERV_ENUM_STATUS_SERVICE> {
    using Reply = EncodedEnumeration;
};
template <typename Argument>
using ReplyTo = typename HandlerOf<Argument>::Reply;

// The argument is borrowed for the call; the request is not looked at. Returns a static reply, valid until the next
// call of the same handler, which releases what it owns; null sends no reply.
#define SERVD_HANDLER(number, name, handler, Record) ReplyTo<Record> *handler(Record *argument, svc_req *request);
SERVD_PROCEDURES(SERVD_HANDLER)
#undef SERVD_HANDLER
