// SPDX-License-Identifier: MIT
// key: an open registry key that is closed at the end of its scope.
#pragma once

#include "tv/winreg.h"
#include "util/guard.h"

// Points at a local key, made after the open. Where a key is to stay open there is no guard.
inline void CloseKeyAt(HKEY *key) { (void)RegCloseKey(*key); }
using KeyGuard = std::unique_ptr<HKEY, Calls<&CloseKeyAt>>;
