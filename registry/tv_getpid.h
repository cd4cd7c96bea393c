// SPDX-License-Identifier: MIT
// tv_getpid: the process id that the registry client reports to its daemon (tarvo_getpid of tvregistry.h).
#pragma once

#include <sys/types.h>

extern int pid_init; // 1 once cached_pid is set
extern pid_t cached_pid;
