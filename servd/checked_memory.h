// SPDX-License-Identifier: MIT
// checked_memory: heap memory for the daemon's own records, which cannot do without it.
//
// All of it is malloc memory, released with free(). When the heap is exhausted the process writes "out of memory" to
// stderr and exits with status 1: a half-changed database would answer wrongly later.
#pragma once

#include <cstddef>

// A zeroed block of count elements of bytes each.
[[nodiscard]] void *CheckedCalloc(std::size_t count, std::size_t bytes);
// As realloc; the bytes beyond the old size are not zeroed.
[[nodiscard]] void *CheckedRealloc(void *block, std::size_t bytes);
// A copy of the text; null for null.
[[nodiscard]] char *CheckedCopy(const char *text);
