// SPDX-License-Identifier: MIT
// completion: commands, options and names of services for shells.
#pragma once

#include <string>

namespace CLI {
class App;
}

// The script of bash, zsh or fish for a program with all its commands; empty for another shell.
[[nodiscard]] std::string CompletionScript(const std::string &shell, const CLI::App &app);
