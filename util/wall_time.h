// SPDX-License-Identifier: MIT
// wall_time: the time of day, which lasts longer than a 32-bit time_t.
#pragma once

#include <cstdint>

// Since the epoch, as gettimeofday counts: seconds, and microseconds from 0 to 999999 on top.
struct WallTime {
    std::int64_t seconds;
    std::int32_t microseconds;
};

// What time it is. Does not block; safe in a signal handler.
[[nodiscard]] WallTime WallTimeNow();
