/* SPDX-License-Identifier: MIT */
#include "tests/support/win32_source.h"
