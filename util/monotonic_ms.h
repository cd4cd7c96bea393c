// SPDX-License-Identifier: MIT
// monotonic_ms: the clock of waits and intervals, and waiting by it.
#pragma once

#include <cstdint>
#include <ctime>

// Microseconds since some moment before the program's start; no setting of the clock moves it.
inline std::int64_t MonotonicUs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// The same in milliseconds; without a division of 64 bits, which 32-bit libraries would need libgcc for.
inline std::int64_t MonotonicMs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Sleeps this long, or until a signal handler has run.
inline void SleepUs(std::int64_t microseconds) {
    const timespec time = {.tv_sec = static_cast<std::time_t>(microseconds / 1000000),
                           .tv_nsec = static_cast<long>(microseconds % 1000000 * 1000)};
    (void)nanosleep(&time, nullptr);
}

inline void SleepMs(std::int64_t milliseconds) { SleepUs(milliseconds * 1000); }
