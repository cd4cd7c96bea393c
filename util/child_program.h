// SPDX-License-Identifier: MIT
// child_program: another program in a process of its own. A program of ours may ignore SIGPIPE and block signals for a
// thread of its own; the other one has neither.
#pragma once

#include <spawn.h>

#include <string>
#include <vector>

// Starts a program.
//   command  its name, searched for in PATH, and its arguments
//   actions  what becomes of its descriptors; null for none
//   process  receives its process id; the caller waits for it
// Returns 0, or the errno code why it was not started.
[[nodiscard]] int SpawnProgram(const std::vector<std::string> &command, const posix_spawn_file_actions_t *actions,
                               pid_t *process);

// Runs a program with this one's descriptors and waits for its end.
//   status  receives its exit status as a shell tells it: 128 and the signal that ended it
// Returns 0, or the errno code why it was not started.
[[nodiscard]] int RunProgram(const std::vector<std::string> &command, int *status);
