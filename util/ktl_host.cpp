// SPDX-License-Identifier: MIT
// ktl_host: the one place that asks libc for the host id.
#include "util/ktl_host.h"

#include <unistd.h>

// A host id has 32 bits; where long is wider, libc hands it out sign-extended.
uint32_t _ktl_gethostid(void) { return static_cast<uint32_t>(gethostid()); }
