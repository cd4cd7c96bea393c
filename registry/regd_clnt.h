// SPDX-License-Identifier: MIT
// regd_clnt: the client stubs of the registry daemon's protocol, one a procedure.
//
// Each sends its argument and returns the stub's own static result, valid until its next call, or null when the call
// failed. The caller releases what was decoded with FreeRecord. A result whose discriminant is not 1 has a body of
// zeros. Blocks for as long as the time-out rule below allows. Thread: under tvRegistryMutex only; results and time-out
// are shared and unguarded.
#pragma once

#include "registry/regd_xdr.h"

// The time-out of a call, shared by all stubs: 25 s in a fresh process. A call that times out adds 25 s for good and is
// repeated while the sum is at most 180 s: seven attempts at 25 to 175 s the first time; at 200 s and more a call is
// attempted once. Deliberate: the time-out grows for the life of the process and is never set back.
extern timeval TIMEOUT;

#define REGD_STUB(number, name, stub, Argument, Result) Result *stub(Argument *argument, CLIENT *client);
REGD_PROCEDURES(REGD_STUB)
#undef REGD_STUB
