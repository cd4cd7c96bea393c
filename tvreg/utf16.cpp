// SPDX-License-Identifier: MIT
// utf16: pairs of bytes, the lower one first.
#include "tvreg/utf16.h"

#include "util/utf16.h"

bool Utf8FromUtf16Bytes(std::string_view bytes, std::string *converted) {
    converted->clear();
    if (bytes.size() % 2 != 0) return false;
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i]);
        const auto high = static_cast<unsigned char>(bytes[i + 1]);
        units.push_back(static_cast<char16_t>(high << 8 | low));
    }
    return Utf8FromUtf16(units, converted);
}

bool Utf16BytesFromUtf8(std::string_view text, std::string *converted) {
    converted->clear();
    std::u16string units;
    if (!Utf16FromUtf8(text, &units)) return false;
    for (const char16_t unit : units) {
        converted->push_back(static_cast<char>(unit & 0xFF));
        converted->push_back(static_cast<char>(unit >> 8));
    }
    return true;
}
