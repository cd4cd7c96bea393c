// SPDX-License-Identifier: MIT
// failing_malloc: a daemon's memory fails on request of the test that started it.
//
// Programs that link tv_failing_malloc look at start for TV_FAILING_MALLOC in the environment: a file that the test
// maps, too, and through which it has the n-th allocation from then on refused. What the program's own objects and
// static libraries take counts; what shared libraries take inside does not.
#pragma once

#include <atomic>
#include <cstdint>

struct FailingMalloc {
    std::atomic<std::int32_t> countdown; // 1: the next allocation is refused; 0: none is
    std::atomic<std::int32_t> refused;   // allocations refused so far
};
