// SPDX-License-Identifier: MIT
// command_line: what was typed, understood.
#pragma once

#include <functional>

// Reads the whole command line. Returns the command to run, which returns the exit status; nothing, and the exit status
// in *status, when there is none to run: help or the version was asked for and given, or the line is wrong and that was
// told.
[[nodiscard]] std::function<int()> ReadCommandLine(int argc, char **argv, int *status);
