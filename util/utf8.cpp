// SPDX-License-Identifier: MIT
// utf8: reading it.
#include "util/utf8.h"

namespace {

constexpr std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000}; // by the number of bytes that follow the first

bool IsSurrogate(std::uint32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

} // namespace

bool TakeUtf8(std::string_view *text, std::uint32_t *character) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>((*text)[i])); };
    const std::uint32_t first = byte(0);
    const std::size_t following = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || text->size() <= following) return false;
    std::uint32_t c = following == 0 ? first : first & (0x3Fu >> following);
    for (std::size_t i = 1; i <= following; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return false;
        c = c << 6 | (byte(i) & 0x3F);
    }
    if (c < smallest[following] || c > 0x10FFFF || IsSurrogate(c)) return false;
    *character = c;
    text->remove_prefix(following + 1);
    return true;
}

bool IsUtf8(std::string_view text) {
    std::uint32_t ignored = 0;
    while (!text.empty()) {
        if (!TakeUtf8(&text, &ignored)) return false;
    }
    return true;
}
