// SPDX-License-Identifier: MIT
// time: sleeping and the milliseconds since the start of the machine.
#include "tv/winbase.h"

#include <sched.h>

#include <cerrno>
#include <ctime>

namespace {

constexpr DWORD msPerSec = 1000;
constexpr long nsPerMs = 1000000;
constexpr long nsPerSec = 1000000000;

// Whatever signals come meanwhile.
void SleepUntil(const timespec &moment) {
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr) == EINTR) {
    }
}

void AddMs(timespec *moment, DWORD milliseconds) {
    moment->tv_sec += static_cast<time_t>(milliseconds / msPerSec);
    moment->tv_nsec += static_cast<long>(milliseconds % msPerSec) * nsPerMs;
    if (moment->tv_nsec >= nsPerSec) {
        moment->tv_nsec -= nsPerSec;
        ++moment->tv_sec;
    }
}

} // namespace

void Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == 0) {
        (void)sched_yield();
        return;
    }
    timespec moment;
    (void)clock_gettime(CLOCK_MONOTONIC, &moment);
    do {
        AddMs(&moment, dwMilliseconds);
        SleepUntil(moment);
    } while (dwMilliseconds == INFINITE);
}

uint64_t GetTickCount64() {
    timespec now;
    (void)clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * msPerSec + static_cast<uint64_t>(now.tv_nsec / nsPerMs);
}

DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }
