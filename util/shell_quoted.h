// SPDX-License-Identifier: MIT
// shell_quoted: a word as a POSIX shell takes it unchanged, for commands that are told to people.
#pragma once

#include <string>

// In single quotes where it needs them.
[[nodiscard]] std::string ShellQuoted(const std::string &text);
