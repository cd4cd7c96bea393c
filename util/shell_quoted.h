// SPDX-License-Identifier: MIT
// shell_quoted: a word as a POSIX shell takes it unchanged, for commands that are told to people.
#pragma once

#include <string>

// In single quotes where it needs them.
[[nodiscard]] std::string ShellQuoted(const std::string &text);

// An argument that begins with a dash would be taken for an option: that of a name stands with its option,
// --name=-x; and the text of an option is one word with it then, --display=-x.
[[nodiscard]] std::string NameArgument(const std::string &name);
[[nodiscard]] std::string OptionArgument(const std::string &option, const std::string &text);
