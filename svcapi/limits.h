// SPDX-License-Identifier: MIT
// limits: what a service may be called, so that the daemon can load it again.
//
// The daemon takes what it is told, but at its next start it reads names and texts into buffers of textBytes, and one
// service that it cannot read leaves it without any. A backslash in a name would make a key within a key, whose upper
// one is no service.
#pragma once

#include "servd/limits.h"
#include "tv/winsvc.h"

#include <cstring>

static_assert(TV_MAX_TEXT_BYTES == longestTextBytes);

// Whether a display name, image path or load-order group can be read again; null is none.
inline bool CanBeLoaded(LPCSTR text) { return text == nullptr || std::strlen(text) <= longestTextBytes; }

inline bool IsServiceName(LPCSTR name) {
    return *name != '\0' && CanBeLoaded(name) && std::strpbrk(name, "\\/") == nullptr;
}
