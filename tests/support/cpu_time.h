// SPDX-License-Identifier: MIT
// cpu_time: what a call costs, for tests that hold one call against another.
//
// Both are run on the same machine in the same build, so that neither a slow processor nor a sanitizer counts.
#pragma once

#include <algorithm>
#include <ctime>

// The processor's time of the cheapest of three runs, in clock ticks, at least one.
template <typename Run>
std::clock_t CpuTimeOf(Run run) {
    std::clock_t best = 0;
    for (int round = 0; round < 3; ++round) {
        const std::clock_t start = std::clock();
        run();
        const std::clock_t taken = std::max<std::clock_t>(std::clock() - start, 1);
        best = round == 0 ? taken : std::min(best, taken);
    }
    return best;
}
