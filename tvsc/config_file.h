// SPDX-License-Identifier: MIT
// config_file: what a user wants other than it is without options: $XDG_CONFIG_HOME/tvsc/config.toml, or the same below
// ~/.config. Each line sets a common option by its long name, "host = 'a'"; what the environment or the command line
// say counts more.
#pragma once

#include <CLI/CLI.hpp>

// Makes the file's values the defaults of these options. Costs one system call where there is no such file. Returns
// what is wrong with it, empty for nothing; the options may have any of its values then.
[[nodiscard]] std::string ReadConfigFile(CLI::App &app);
