// SPDX-License-Identifier: MIT
// load: the service database from the registry.
#pragma once

#include "servd/win32_code.h"

#include <cstdint>

// Builds svcdb, the groups and the image paths from the registry. Returns 0 or the code of the registry call that
// failed; the records filled so far stay.
[[nodiscard]] Win32Code ReadServiceDatabase();
