// SPDX-License-Identifier: MIT
// utf16: pairs of bytes, the lower one first.
#include "tvreg/utf16.h"

#include "util/utf8.h"

#include <cstdint>

namespace {

bool IsSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

void AppendUtf8(std::uint32_t c, std::string *text) {
    const auto put = [&](std::uint32_t byte) { text->push_back(static_cast<char>(byte)); };
    if (c < 0x80) return put(c);
    if (c < 0x800) {
        put(0xC0 | c >> 6);
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
    } else {
        put(0xF0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
    }
    put(0x80 | (c & 0x3F));
}

void AppendUnit(std::uint32_t unit, std::string *bytes) {
    bytes->push_back(static_cast<char>(unit & 0xFF));
    bytes->push_back(static_cast<char>(unit >> 8));
}

} // namespace

bool Utf8FromUtf16(std::string_view bytes, std::string *converted) {
    converted->clear();
    if (bytes.size() % 2 != 0) return false;
    const auto unit = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) |
               static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
    };
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        std::uint32_t c = unit(i);
        if (IsSurrogate(c)) {
            i += 2;
            if (c >= 0xDC00 || i >= bytes.size() || unit(i) < 0xDC00 || unit(i) > 0xDFFF) return false;
            c = 0x10000 + ((c & 0x3FF) << 10 | (unit(i) & 0x3FF));
        }
        AppendUtf8(c, converted);
    }
    return true;
}

bool Utf16FromUtf8(std::string_view text, std::string *converted) {
    converted->clear();
    while (!text.empty()) {
        std::uint32_t c = 0;
        if (!TakeUtf8(&text, &c)) return false;
        if (c >= 0x10000) {
            AppendUnit(0xD800 | (c - 0x10000) >> 10, converted);
            c = 0xDC00 | (c & 0x3FF);
        }
        AppendUnit(c, converted);
    }
    return true;
}
