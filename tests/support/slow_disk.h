// SPDX-License-Identifier: MIT
// slow_disk: a disk that is as slow as a test wants, or fails.
//
// The module slow_disk, loaded into a program before its libraries (LD_PRELOAD), looks at start for TV_SLOW_DISK in the
// environment: a file that the test maps, too, and through which it says how fdatasync goes.
#pragma once

#include <atomic>
#include <cstdint>

struct SlowDisk {
    std::atomic<std::int32_t> syncMs; // what a sync takes
    std::atomic<std::int32_t> fails;  // not 0: with this errno
    std::atomic<std::int32_t> syncs;  // begun so far
};
