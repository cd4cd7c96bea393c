// SPDX-License-Identifier: MIT
// process: the process of a service, from its fork to its end.
#pragma once

#include "servd/servd_svc_proc/values.h"

#include <sys/types.h>

// Reads the service's image path and account, becomes a program of that user in a child process, and has the child's
// end awaited.
//   name       of the service
//   imagePath  in: what is known of it; out: the value, where it could be read
//   processId  set on success only
// Deliberate: leaves the two registry keys that it opens open.
// Returns 0; 3 when the program could not be executed, 6 when there is no child.
[[nodiscard]] std::uint32_t LaunchService(const char *name, TextBuffer &imagePath, pid_t *processId);

// Thread body: waits for a started process to end and forgets how it did. The argument carries the process id.
void *WaitForService(void *pid);
