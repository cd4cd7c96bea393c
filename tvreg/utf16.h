// SPDX-License-Identifier: MIT
// utf16: UTF-16LE as the bytes of files and values.
#pragma once

#include <string>
#include <string_view>

// Both return false, with `converted` unfinished, for what is not proper text (util/utf16.h) or has an odd number of
// bytes.
[[nodiscard]] bool Utf8FromUtf16Bytes(std::string_view bytes, std::string *converted);
[[nodiscard]] bool Utf16BytesFromUtf8(std::string_view text, std::string *converted);
