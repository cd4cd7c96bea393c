/* SPDX-License-Identifier: MIT */
/* win32_source, as C. */
#include "tests/support/win32_source.h"
