// SPDX-License-Identifier: MIT
// command_line: the commands, what each takes, and what to run.
#pragma once

#include "tvreg/commands.h"

// What was said, and what is to be done about it: nothing where help was asked for, which is printed then.
struct Invocation {
    Options options;
    int (*run)(const Options &) = nullptr;
};

// Reads the command line into an invocation; --json is known there even where the rest is wrong. Throws a Failure of
// EXIT_USAGE.
void ReadCommandLine(int argc, const char *const *argv, Invocation *invocation);
