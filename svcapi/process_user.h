// SPDX-License-Identifier: MIT
// process_user: whose a process is.
#pragma once

#include <sys/types.h>

// The effective user of a process: the one that its sockets and files are made as. Returns false when there is no such
// process or it cannot be looked at (/proc mounted with hidepid, no /proc).
[[nodiscard]] bool FindUserOf(pid_t process, uid_t *user);
