// SPDX-License-Identifier: MIT
// ktl_getlogin: the one place that asks libc for the login name.
#include "util/ktl_getlogin.h"

#include <unistd.h>

char *_ktl_getlogin(void) { return getlogin(); }
