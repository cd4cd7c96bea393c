// SPDX-License-Identifier: MIT
// service_clnt: the client stubs of the protocol spoken to a service process.
//
// Each makes one call with a time-out of 25 seconds and returns the stub's own static result, valid until its next
// call, or null when the call failed for whatever reason. The caller releases what was decoded with xdr_free and
// destroys the client handle. Not reentrant: main thread only.
#pragma once

#include "servd/service_xdr.h"

service_START_SERVICE_OUT *service_start_service_1(service_START_SERVICE_IN *argument, CLIENT *client);
service_CONTROL_SERVICE_OUT *service_control_service_1(service_CONTROL_SERVICE_IN *argument, CLIENT *client);
service_DUMMY_OUT *service_dummy_service_1(service_DUMMY_IN *argument, CLIENT *client);
