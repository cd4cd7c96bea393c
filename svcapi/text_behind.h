// SPDX-License-Identifier: MIT
// text_behind: the strings that stand behind a record, in the record's characters.
#pragma once

#include "svcapi/wide.h"

#include <cstring>
#include <type_traits>

// char for the pointers of an A record, WCHAR for those of a W record.
template <typename Pointer>
using CharOf = std::remove_pointer_t<Pointer>;

// Bytes of a text behind a record, terminator included. A multi-string is a text with zeros in it.
template <typename Char>
std::size_t TextBytes(const std::string &text) {
    return (InCharacters<Char>(text).size() + 1) * sizeof(Char);
}

// Copies characters and a terminator to *end and moves *end behind it.
template <typename Char>
Char *PutCharacters(std::basic_string_view<Char> characters, Char **end) {
    Char *const start = *end;
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a caller without a buffer has no room for any text
    std::memcpy(start, characters.data(), characters.size() * sizeof(Char));
    start[characters.size()] = Char{};
    *end += characters.size() + 1;
    return start;
}

// The same with a text of the daemon's.
template <typename Char>
Char *PutText(const std::string &text, Char **end) {
    return PutCharacters<Char>(InCharacters<Char>(text), end);
}
