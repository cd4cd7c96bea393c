// SPDX-License-Identifier: MIT
// wide: the W forms over the A forms.
//
// Strings inside are bytes in UTF-8. What a W function takes is converted on the way in, what it gives on the way out.
#pragma once

#include "tvbase/result.h"

#include "util/utf16.h"

#include <string>

// 1113 ERROR_NO_UNICODE_TRANSLATION for text that is not proper. `wide` is not null.
[[nodiscard]] DWORD Narrow(LPCWSTR wide, std::string *narrow);
[[nodiscard]] DWORD Widen(const std::string &narrow, std::u16string *wide);

// Calls `use` with the text in UTF-8, null for null. FALSE, with the last error set and `use` not called, when there is
// no such text.
template <typename Use>
[[nodiscard]] BOOL WithNarrow(LPCWSTR wide, Use use) {
    std::string narrow;
    if (wide != nullptr) {
        if (const DWORD rc = Guarded([&] { return Narrow(wide, &narrow); }); rc != 0) return Answer(rc);
    }
    use(wide == nullptr ? nullptr : narrow.c_str());
    return TRUE;
}

// Copies a text with its terminator; a buffer that is too small gets what fits, terminated. Returns whether all fitted.
template <typename Unit, typename Text>
bool CopyCut(const Text &text, Unit *buffer, std::size_t room) {
    if (room == 0) return false;
    const std::size_t count = text.size() < room ? text.size() : room - 1;
    for (std::size_t i = 0; i < count; ++i) {
        buffer[i] = static_cast<Unit>(text[i]);
    }
    buffer[count] = 0;
    return count == text.size();
}
