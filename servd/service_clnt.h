// SPDX-License-Identifier: MIT
// service_clnt: the client stubs of the protocol spoken to a service process.
//
// Each makes one call within serviceCallTimeoutSec (servd/limits.h) and returns the stub's own static result, valid
// until its next call, or null when the call failed for whatever reason. The caller releases what was decoded with
// FreeRecord and destroys the client handle. Not reentrant: main thread only.
#pragma once

#include "servd/service_xdr.h"

#define SERVICE_STUB(number, name, stub, Record) Record##_OUT *stub(Record##_IN *argument, CLIENT *client);
SERVICE_PROCEDURES(SERVICE_STUB)
#undef SERVICE_STUB
