// SPDX-License-Identifier: MIT
// sc: the verbs of the Win32 command line of services, with their syntax and the layout of what they print, for scripts
// that were written for it. They do what the Win32 functions do, and nothing around that: a start does not wait.
#pragma once

#include "tvsc/session.h"

#include <string>
#include <vector>

// Whether the words are those of the verb that reads standard input.
[[nodiscard]] bool IsScLock(const std::vector<std::string> &words);

// A verb, and the names of its options, in small letters and without the sign behind them.
struct ScVerbWords {
    std::string name;
    std::vector<std::string> options;
};
[[nodiscard]] std::vector<ScVerbWords> ScVerbs();

//   words  the host as \\HOST or nothing, the verb, its arguments
// Returns the exit status: 0, the Win32 code where it fits into eight bits, else this program's status for the code.
int RunSc(const Options &options, const std::vector<std::string> &words);
