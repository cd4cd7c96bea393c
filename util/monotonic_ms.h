// SPDX-License-Identifier: MIT
// monotonic_ms: the clock of waits and intervals, and waiting by it.
#pragma once

#include <cstdint>
#include <ctime>

// Milliseconds since some moment before the program's start; no setting of the clock moves it.
inline std::int64_t MonotonicMs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Sleeps this long, or until a signal handler has run.
inline void SleepMs(std::int64_t milliseconds) {
    const timespec time = {.tv_sec = static_cast<std::time_t>(milliseconds / 1000),
                           .tv_nsec = static_cast<long>(milliseconds % 1000 * 1000000)};
    (void)nanosleep(&time, nullptr);
}
