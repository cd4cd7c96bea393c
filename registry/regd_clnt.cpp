// SPDX-License-Identifier: MIT
// regd_clnt: one call to the registry daemon, its answer in a static result.
#include "registry/regd_clnt.h"

timeval TIMEOUT = {25, 0};

static constexpr time_t TIMEOUTSTEP = 25; // seconds
static constexpr time_t retryLimitSec = 180;

template <typename Argument>
static ResultOf<Argument> *CallRegd(CLIENT *client, const Argument &argument) {
    static ResultOf<Argument> res;
    res = {};
    for (;;) {
        const clnt_stat status = CallProcedure(client, argument, &res, TIMEOUT);
        if (status == RPC_SUCCESS) return &res;
        FreeRecord(&res); // what an undecodable reply has left
        if (status != RPC_TIMEDOUT) return nullptr;
        TIMEOUT.tv_sec += TIMEOUTSTEP;
        if (TIMEOUT.tv_sec > retryLimitSec) return nullptr;
    }
}

#define STUB(number, name, stub, Argument, Result)                                                                     \
    Result *stub(Argument *argument, CLIENT *client) { return CallRegd(client, *argument); }
REGD_PROCEDURES(STUB)
