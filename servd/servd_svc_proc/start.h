// SPDX-License-Identifier: MIT
// start: bringing a service up.
#pragma once

#include "servd/service_xdr.h"
#include "servd/win32_code.h"

// Starts the service svcdb[index] in a new process and hands it its start request.
//   arglist  start arguments in order; may be null; borrowed for the call
//   argc     number of arguments, as the client gave it
// Blocks for whole seconds, up to the retry limits (limits.h), plus one call of serviceCallTimeoutSec.
// Returns 0; 3 program could not be executed; 6 no fork; 1053 process unreachable or silent; 1056 the service is not
// stopped; else the service's own refusal.
[[nodiscard]] Win32Code QuickStartService(std::int32_t index, svc_arglist_t *arglist, std::int32_t argc);
