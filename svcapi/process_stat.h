// SPDX-License-Identifier: MIT
// process_stat: what the kernel tells of a process in one line.
#pragma once

#include <sys/types.h>

#include <cstdint>

struct ProcessStat {
    char state = '\0'; // 'Z' for one that has ended and whose end was not taken
    pid_t parent = 0;
    std::uint64_t cpuTicks = 0;    // its own, all threads
    std::uint64_t takenTicks = 0;  // of the children whose end it has taken
    std::uint64_t startTicks = 0;  // since the boot: with the process id it tells a process from every other one
    std::uint64_t memoryPages = 0; // resident
};

// Reads the line. Returns false when there is no such process.
[[nodiscard]] bool ReadProcessStat(pid_t process, ProcessStat *stat);

// When a process was started, as above; 0 when there is none.
[[nodiscard]] std::uint64_t StartOfProcess(pid_t process);

// Milliseconds since the boot.
[[nodiscard]] std::int64_t MsSinceBoot();

// Whether a process is still the one that was started then; 0 stands for any time.
[[nodiscard]] bool IsSameProcess(pid_t process, std::uint64_t startTicks);
