// SPDX-License-Identifier: MIT
// allocations: what the code under test takes from malloc, and how it bears being refused.
//
// Programs that link tv_test_allocations have the malloc family of all their own objects and static libraries counted
// here (shared libraries are not). One thread only.
#pragma once

#include <cstddef>

struct Allocations {
    long live;           // blocks taken and not given back since StartCounting
    std::size_t largest; // bytes of the largest request since StartCounting
    long requests;       // malloc, calloc and realloc calls since StartCounting
};

// Counts from zero; the request numbered `failing`, from 1, is refused, and so is each one after it. 0: none is.
void StartCounting(long failing = 0);
Allocations StopCounting();
