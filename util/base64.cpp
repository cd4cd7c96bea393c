// SPDX-License-Identifier: MIT
// base64: three bytes make four characters of six bits each.
#include "util/base64.h"

#include <cstdint>
#include <cstring>

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

std::optional<std::string> BytesOfBase64(std::string_view text) {
    std::string bytes;
    std::uint32_t group = 0;
    const std::size_t signs = text.find_last_not_of('=') + 1;
    for (std::size_t i = 0; i < signs; ++i) {
        const char *const digit = static_cast<const char *>(std::memchr(digits, text[i], sizeof digits - 1));
        if (digit == nullptr) return std::nullopt;
        group = group << 6 | static_cast<std::uint32_t>(digit - digits);
        const auto unused =
            static_cast<unsigned>(6 - 2 * (i % 4)); // bits of the group that are not of a whole byte yet
        if (i % 4 != 0) bytes.push_back(static_cast<char>(group >> unused & 0xFF));
    }
    if (Base64(bytes) != text) return std::nullopt; // the fill, and bits that nothing stands for
    return bytes;
}
