// SPDX-License-Identifier: MIT
// utf16: text between UTF-8 and UTF-16.
#pragma once

#include <string>
#include <string_view>

// Both return false, with `converted` unfinished, for what is not proper text: overlong or cut sequences, lone
// surrogates.
[[nodiscard]] bool Utf8FromUtf16(std::u16string_view units, std::string *converted);
[[nodiscard]] bool Utf16FromUtf8(std::string_view text, std::u16string *converted);
