// SPDX-License-Identifier: MIT
// monotonic_ms: the clock of waits and intervals.
#pragma once

#include <cstdint>
#include <ctime>

// Milliseconds since some moment before the program's start; no setting of the clock moves it.
inline std::int64_t MonotonicMs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}
