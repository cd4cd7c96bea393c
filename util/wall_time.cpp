// SPDX-License-Identifier: MIT
// wall_time: libc's clock, and the kernel's where libc's has ended.
//
// Where time_t has 32 bits, libc's calls fail from 19 January 2038 on, because the answer does not fit. The kernel has
// a call with 64-bit seconds there, and libc none that passes them on as long as its time_t has 32 bits.
#include "util/wall_time.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

namespace {

template <typename Time>
WallTime AsWallTime(const Time &time) {
    return {.seconds = time.tv_sec, .microseconds = static_cast<std::int32_t>(time.tv_nsec) / 1000};
}

} // namespace

WallTime WallTimeNow() {
    timespec now = {};
    if (clock_gettime(CLOCK_REALTIME, &now) == 0) return AsWallTime(now);
#ifdef SYS_clock_gettime64
    struct {
        std::int64_t tv_sec;
        std::int64_t tv_nsec;
    } wide = {};
    if (syscall(SYS_clock_gettime64, CLOCK_REALTIME, &wide) == 0) return AsWallTime(wide);
#endif
    return {};
}
