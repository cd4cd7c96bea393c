/* SPDX-License-Identifier: MIT */
/* Windows: the other spelling of windows.h. */
#include "windows.h"
