// SPDX-License-Identifier: MIT
// xdr_bytes: XDR bytes written by hand (RFC 4506), without any codec.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

// Integers, most significant byte first.
inline std::string Words(std::initializer_list<std::uint32_t> words) {
    std::string bytes;
    for (const std::uint32_t word : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(word >> shift);
        }
    }
    return bytes;
}

// A length word, the bytes, and zeros up to a multiple of four: a string or variable-length opaque.
inline std::string XdrString(std::string_view text) {
    std::string bytes = Words({static_cast<std::uint32_t>(text.size())});
    bytes += text;
    bytes.append((4 - text.size() % 4) % 4, '\0');
    return bytes;
}
