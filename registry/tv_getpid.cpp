// SPDX-License-Identifier: MIT
// tv_getpid: the process id that the registry client reports to its daemon.
//
// Deliberate: asked for once, so that a forked child goes on reporting its parent's id.
#include "registry/tv_getpid.h"

#include "tv/tvregistry.h"

#include <unistd.h>

int pid_init = 0;
pid_t cached_pid = 0;

pid_t tarvo_getpid(void) {
    if (pid_init == 0) {
        cached_pid = getpid();
        pid_init = 1;
    }
    return cached_pid;
}
