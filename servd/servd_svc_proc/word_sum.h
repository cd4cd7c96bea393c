// SPDX-License-Identifier: MIT
// word_sum: adding as 32-bit words do.
#pragma once

#include <cstdint>

// The sum as 32-bit words have it: it wraps, and is defined for any two numbers.
inline std::int32_t WordSum(std::int64_t a, std::int64_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
