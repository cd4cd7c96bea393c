// SPDX-License-Identifier: MIT
// wide: texts of the API between UTF-16, which W functions speak, and the UTF-8 that the daemon has.
#pragma once

#include "tv/wintypes.h"

#include <deque>
#include <string>
#include <string_view>

// The arguments of a W function as those of its namesake for bytes; the texts live as long as this record.
struct NarrowArguments {
    DWORD code = 0; // 1113 ERROR_NO_UNICODE_TRANSLATION once an argument was no UTF-16
    std::deque<std::string> texts;
};

// A text, or a multi-string, as bytes; null stays null. After text that is no UTF-16 the arguments' code is set.
[[nodiscard]] LPSTR Narrow(NarrowArguments *arguments, LPCWSTR text);
[[nodiscard]] LPSTR NarrowMultiString(NarrowArguments *arguments, LPCWSTR text);

// A text of the daemon's as UTF-16: bytes that are no UTF-8 become U+FFFD each. Embedded zeros stay.
[[nodiscard]] std::u16string Widened(std::string_view text);

// A text of the daemon's in the characters of a record.
template <typename Char>
[[nodiscard]] std::basic_string<Char> InCharacters(const std::string &text) {
    if constexpr (sizeof(Char) == 1) {
        return text;
    } else {
        return Widened(text);
    }
}
