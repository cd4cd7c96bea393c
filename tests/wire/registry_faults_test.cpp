// SPDX-License-Identifier: MIT
// The fault cases of the handlers over TCP: a real daemon whose registry answers through a proxy that refuses one call,
// or breaks off in the middle of it.
#include "tests/support/real_daemon.h"
