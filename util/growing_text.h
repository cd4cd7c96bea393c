// SPDX-License-Identifier: MIT
// growing_text: text that takes memory as it grows. For the files of path_util.
//
// chars is malloc memory, always terminated; null while nothing has been appended.
#pragma once

#include "util/guard.h"

#include <cstdlib>
#include <cstring>

struct GrowingText {
    char *chars;
    std::size_t length;
    std::size_t roomBytes; // terminator included
};

// Makes room for `length` characters and the terminator. Returns false when out of memory; nothing has changed then.
[[nodiscard]] inline bool Reserve(GrowingText &text, std::size_t length) {
    if (length < text.roomBytes) return true;
    const std::size_t roomBytes = length + length / 2 + 16;
    char *grown = static_cast<char *>(std::realloc(text.chars, roomBytes));
    if (grown == nullptr) return false;
    text.chars = grown;
    text.roomBytes = roomBytes;
    return true;
}

// Appends characters, which must not be the text's own. Returns false when out of memory.
[[nodiscard]] inline bool Append(GrowingText &text, const char *chars, std::size_t count) {
    if (!Reserve(text, text.length + count)) return false;
    if (count > 0) std::memcpy(text.chars + text.length, chars, count);
    text.length += count;
    text.chars[text.length] = '\0';
    return true;
}

[[nodiscard]] inline bool Append(GrowingText &text, const char *chars) {
    return Append(text, chars, std::strlen(chars));
}

// Releases the text at the end of the scope.
inline void FreeGrowingText(GrowingText *text) { std::free(text->chars); }
using GrowingTextGuard = std::unique_ptr<GrowingText, Calls<&FreeGrowingText>>;

// Hands the characters over to the caller, who frees them.
inline char *Release(GrowingText &text) {
    char *chars = text.chars;
    text = {};
    return chars;
}
