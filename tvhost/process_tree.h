// SPDX-License-Identifier: MIT
// process_tree: all processes that have come of one.
//
// tvhost is the subreaper of what it starts: whatever group or session a process goes to, and whether its parent lives,
// it stays a descendant of tvhost. A process is signalled through a descriptor that was checked after it was opened, so
// that another one that has got its number in between is not met.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

struct TreeProcess {
    pid_t process = 0;
    std::uint64_t startTicks = 0;
    bool hasEnded = false; // its end was not taken yet
};

// The descendants of a process, itself left out, the older ones first.
[[nodiscard]] std::vector<TreeProcess> DescendantsOf(pid_t root);

// Adds what descends from processes, which are told by their start, too, and has not ended: what is not among them yet,
// the older ones first. Returns whether there was any.
bool AddDescendants(std::vector<TreeProcess> *processes);

// Whether one process has come of another one.
[[nodiscard]] bool IsDescendantOf(pid_t process, pid_t root);

// Signals one process, if it is still the one that it was.
void SignalProcess(const TreeProcess &process, int signal);

// Signals the descendants of a process that have not ended, but those that are spared with all that has come of them.
// For SIGSTOP and SIGKILL, under which a tree does not grow, it goes on until no new one turns up. Returns how many
// there were.
std::size_t SignalDescendants(pid_t root, int signal, const std::vector<pid_t> &spared = {});

// The name that a process runs under; empty when there is none.
[[nodiscard]] std::string NameOfProcess(pid_t process);

struct TreeUsage {
    std::size_t processes = 0;
    std::uint64_t memoryBytes = 0; // resident; what several share counts for each
    std::uint64_t cpuMs = 0;       // also of those that have ended and whose end was taken
};

// What the descendants of a process take.
[[nodiscard]] TreeUsage UsageOfDescendants(pid_t root);
