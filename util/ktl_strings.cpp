// SPDX-License-Identifier: MIT
// ktl_strings: string routines whose behaviour does not depend on the platform.
//
// Reentrant. Only _ktl_strdup allocates; its callers free with free().
#include "util/ktl_strings.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

char *_ktl_strdup(const char *s) {
    if (s == nullptr) return nullptr;
    const std::size_t bytes = std::strlen(s) + 1;
    char *copy = static_cast<char *>(std::malloc(bytes));
    if (copy != nullptr) std::memcpy(copy, s, bytes);
    return copy;
}
