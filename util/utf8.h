// SPDX-License-Identifier: MIT
// utf8: characters in bytes.
//
// Only what is proper: no overlong or cut sequence, no surrogate, nothing above U+10FFFF.
#pragma once

#include <cstdint>
#include <string_view>

// Takes one character off the front of a text that is not empty. Returns false, with the text as it was, where none
// begins.
[[nodiscard]] bool TakeUtf8(std::string_view *text, std::uint32_t *character);

// Whether a text holds nothing but characters.
[[nodiscard]] bool IsUtf8(std::string_view text);
