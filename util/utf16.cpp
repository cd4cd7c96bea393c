// SPDX-License-Identifier: MIT
// utf16: characters above U+FFFF are pairs of units, the high surrogate first.
#include "util/utf16.h"

#include "util/utf8.h"

#include <cstdint>

namespace {

bool IsSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
bool IsLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

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

} // namespace

bool Utf8FromUtf16(std::u16string_view units, std::string *converted) {
    converted->clear();
    for (std::size_t i = 0; i < units.size(); ++i) {
        std::uint32_t c = units[i];
        if (IsSurrogate(c)) {
            ++i;
            if (IsLowSurrogate(c) || i >= units.size() || !IsLowSurrogate(units[i])) return false;
            c = 0x10000 + ((c & 0x3FF) << 10 | (units[i] & 0x3FFu));
        }
        AppendUtf8(c, converted);
    }
    return true;
}

bool Utf16FromUtf8(std::string_view text, std::u16string *converted) {
    converted->clear();
    while (!text.empty()) {
        std::uint32_t c = 0;
        if (!TakeUtf8(&text, &c)) return false;
        if (c >= 0x10000) {
            converted->push_back(static_cast<char16_t>(0xD800 | (c - 0x10000) >> 10));
            c = 0xDC00 | (c & 0x3FF);
        }
        converted->push_back(static_cast<char16_t>(c));
    }
    return true;
}
