// SPDX-License-Identifier: MIT
// base64: three bytes make four characters of six bits each.
#include "util/base64.h"

#include <cstdint>

static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            text.push_back(i + j <= bytes.size() ? digits[group >> (18 - 6 * j) & 0x3F] : '=');
        }
    }
    return text;
}
