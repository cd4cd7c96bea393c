// SPDX-License-Identifier: MIT
// win32_code: what every operation of the daemon answers.
#pragma once

#include "tv/wintypes.h"

// A Win32 error code; 0 is success. The type in which the registry's functions answer, and in which a reply carries it.
using Win32Code = LONG;
