// SPDX-License-Identifier: MIT
// service_clnt: one call to a service process, its answer in a static result.
#include "servd/service_clnt.h"

#include "servd/limits.h"

static const timeval TIMEOUT = {serviceCallTimeoutSec, 0};

template <typename Argument>
static ResultOf<Argument> *CallService(CLIENT *client, const Argument &argument) {
    static ResultOf<Argument> res;
    res = {};
    return CallProcedure(client, argument, &res, TIMEOUT) == RPC_SUCCESS ? &res : nullptr;
}

#define STUB(number, name, stub, Record)                                                                               \
    Record##_OUT *stub(Record##_IN *argument, CLIENT *client) { return CallService(client, *argument); }
SERVICE_PROCEDURES(STUB)
