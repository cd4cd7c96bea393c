// SPDX-License-Identifier: MIT
// descriptor_limit: see the header.
//
// Owns: the limit of program start, written once by the main thread.
#include "servd/descriptor_limit.h"

#include <sys/resource.h>

static rlimit limitAtStart;
static bool isRaised;

void RaiseDescriptorLimit() {
    if (getrlimit(RLIMIT_NOFILE, &limitAtStart) != 0) return;
    const rlimit raised = {limitAtStart.rlim_max, limitAtStart.rlim_max};
    isRaised = setrlimit(RLIMIT_NOFILE, &raised) == 0;
}

void RestoreDescriptorLimitInChild() {
    if (isRaised) (void)setrlimit(RLIMIT_NOFILE, &limitAtStart);
}
