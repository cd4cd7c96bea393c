// SPDX-License-Identifier: MIT
// win32_command_line: arguments in one line, as Win32 programs put them together and take them apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Appends an argument, in quotes where it needs them.
void AppendQuoted(const std::string &argument, std::string *line);

// Blanks part arguments unless they are in quotes. A run of backslashes before a quote counts half, and an odd one
// takes the quote's meaning away; two quotes in quotes are one that is meant.
[[nodiscard]] std::vector<std::string> SplitWin32CommandLine(std::string_view line);
