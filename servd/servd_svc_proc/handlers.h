// SPDX-License-Identifier: MIT
// handlers: the answers to the daemon's procedures, one for each.
#pragma once

#include "servd/servd_xdr.h"

// The argument is borrowed for the call; the request is not looked at. Returns a static reply, valid until the next
// call of the same handler, which releases what it owns; null sends no reply.
#define SERVD_HANDLER(number, name, handler, Record) Record##_RETURN *handler(Record *argument, svc_req *request);
SERVD_PROCEDURES(SERVD_HANDLER)
#undef SERVD_HANDLER
