// SPDX-License-Identifier: MIT
// little_endian: 32-bit numbers as the registry keeps them, the lowest byte first.
#pragma once

#include <cstdint>

constexpr std::uint32_t dwordBytes = 4;

// The number in the four bytes at `bytes`.
inline std::uint32_t DwordAt(const char *bytes) {
    std::uint32_t number = 0;
    for (std::uint32_t i = dwordBytes; i-- > 0;) {
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return number;
}

// Writes the four bytes of a number to `bytes`.
inline void PutDword(std::uint32_t number, char *bytes) {
    for (std::uint32_t i = 0; i < dwordBytes; ++i) {
        bytes[i] = static_cast<char>(number >> 8 * i & 0xFF);
    }
}
