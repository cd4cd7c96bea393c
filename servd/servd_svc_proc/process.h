// SPDX-License-Identifier: MIT
// process: the process of a service, from the fork to its program.
#pragma once

#include "servd/servd_svc_proc/values.h"
#include "servd/win32_code.h"

#include <sys/types.h>

// Reads the service's image path and account, becomes a program of that user in a child process, and has the child's
// end awaited.
//   name       of the service
//   imagePath  in: what is known of it; out: the value, where it could be read
//   processId  set on success only
// Deliberate: leaves the two registry keys that it opens open.
// Blocks for execLimitMs at most, beside the registry's calls. Signals that end the daemon end it meanwhile.
// Returns 0; 3 when the program could not be executed, or was not in time, 6 when there is no child.
[[nodiscard]] Win32Code LaunchService(const char *name, TextBuffer &imagePath, pid_t *processId);

// Kills the child that is not its program yet, if there is one. For a signal handler that ends the daemon: a child that
// has been halted there would keep the daemon's clients waiting. Async-signal-safe.
void KillChildOnItsWay();
