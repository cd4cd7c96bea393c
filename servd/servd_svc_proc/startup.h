// SPDX-License-Identifier: MIT
// startup: what the daemon's initialisation makes known.
#pragma once

#include "servd/win32_code.h"

#include <cstdint>

extern std::int32_t binitializing; // 1 while it runs
extern Win32Code initstatus;       // 0, or 1065 when the database could not be built
extern char scmhostname[256];      // this machine's name; reaches service processes
