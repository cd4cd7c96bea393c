// SPDX-License-Identifier: MIT
// named_value: one value of the registry, and what is wrong with it where it cannot be used.
#pragma once

#include "tv/winreg.h"

#include <string>

// Reads a value whole.
//   problem  what is wrong with it, for people, its name first; left alone with 0 and 2
// Returns 0; 2 ERROR_FILE_NOT_FOUND when there is none; 13 ERROR_INVALID_DATA when it has another type or is longer
// than anything that it could mean; or a code of the registry.
[[nodiscard]] DWORD ReadNamedValue(HKEY key, const char *name, DWORD wantedType, std::string *data,
                                   std::string *problem);
