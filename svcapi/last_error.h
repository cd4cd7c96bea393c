// SPDX-License-Identifier: MIT
// last_error: how the functions of the API turn a result code into their answer.
#pragma once

#include "tv/winsvc.h"

// TRUE for 0; else FALSE, and the code becomes the thread's last error.
[[nodiscard]] BOOL Succeeded(DWORD code);
