// SPDX-License-Identifier: MIT
// encoding: the characters of a .reg file, however they were saved.
#pragma once

#include <string>
#include <string_view>

// Whether iconv(3) knows the name of a character set.
[[nodiscard]] bool IsEncoding(const std::string &name);

// Turns text of a character set that IsEncoding knows into UTF-8. Returns false, with `text` holding what came before,
// where the bytes are none.
[[nodiscard]] bool Utf8FromEncoding(const std::string &encoding, std::string_view bytes, std::string *text);

// Makes a whole file the text that is read line by line: UTF-16 of either byte order, told by its mark or by a first
// character that is ASCII, becomes UTF-8; UTF-8 loses its mark; all else stays as it is. With an encoding the bytes
// are taken as that, whatever they look like. Marks of the end of a file behind the text (0x1A) go. Returns false, with
// `text` holding what came before, where the bytes are not of that kind.
[[nodiscard]] bool TextOfFile(std::string_view bytes, const std::string &encoding, std::string *text);
