// SPDX-License-Identifier: MIT
// autostart: the services that start with the daemon.
#pragma once

#include "servd/win32_code.h"

#include <cstdint>

// Starts every service whose start type is 0, 1 or 2, each after its stopped dependencies. Always returns 0.
[[nodiscard]] Win32Code RunAutoStartServices();
