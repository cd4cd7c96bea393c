// SPDX-License-Identifier: MIT
// value_bytes: the bytes of registry values, as the registry's types have them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

// REG_SZ: with its terminator.
inline std::string Sz(std::string_view text) { return std::string(text) + '\0'; }

// REG_MULTI_SZ: both terminators included; one zero byte for no texts.
inline std::string MultiSz(const std::vector<std::string> &texts) {
    std::string bytes;
    for (const std::string &text : texts) {
        bytes += Sz(text);
    }
    return bytes + '\0';
}

// REG_DWORD: in the machine's order.
inline std::string Dword(std::uint32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}
