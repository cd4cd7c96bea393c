// SPDX-License-Identifier: MIT
// messages: texts with inserts.
#pragma once

#include "tv/wintypes.h"

#include <cstdarg>
#include <string>
#include <string_view>
#include <vector>

// Where the values of inserts come from: words of pointer width, taken one after the other.
struct InsertSource {
    va_list *arguments;
    bool isArray; // `arguments` is an array of words in disguise
    bool isWide;  // strings are UTF-16 unless an insert says otherwise
    std::vector<DWORD_PTR> taken;
};

// Replaces a text's inserts and escapes. `stripLines`: line breaks of the text become blanks, those of %n stay. 87 for
// an insert that cannot be obeyed, 1113 for an insert of UTF-16 that is no text.
[[nodiscard]] DWORD ExpandMessage(std::string_view text, bool stripLines, InsertSource *inserts, std::string *expanded);

// Line breaks become blanks, and there is one at the end.
[[nodiscard]] std::string StripLines(std::string_view text);

// What a result code says, as FormatMessage has it; "" for a code without words.
[[nodiscard]] std::string SystemMessage(DWORD code);
