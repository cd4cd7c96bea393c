// SPDX-License-Identifier: MIT
// path_util: routines for Unix path names.
#include "util/path_util.h"

#include <cstring>

int _ktlIsPathSpec(const char *name, int absoluteOnly) {
    if (name == nullptr) return 0;
    if (absoluteOnly != 0) return name[0] == '/' ? 1 : 0;
    return std::strchr(name, '/') != nullptr ? 1 : 0;
}
