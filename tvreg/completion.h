// SPDX-License-Identifier: MIT
// completion: commands, options and keys for shells.
#pragma once

#include <string>

namespace CLI {
class App;
}

// The script of bash, zsh or fish for a program with all its commands; empty for another shell.
std::string CompletionScript(const std::string &shell, const CLI::App &app);
