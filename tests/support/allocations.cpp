// SPDX-License-Identifier: MIT
// allocations: the counting malloc family, put in place of libc's by the linker's --wrap.
#include "tests/support/allocations.h"

#include <algorithm>
#include <cerrno>

static bool counting = false;
static Allocations counted = {};
static long firstRefused = 0;

void StartCounting(long failing) {
    counted = {};
    firstRefused = failing;
    counting = true;
}

Allocations StopCounting() {
    counting = false;
    return counted;
}

static bool Granted(std::size_t bytes) {
    if (!counting) return true;
    ++counted.requests;
    counted.largest = std::max(counted.largest, bytes);
    if (firstRefused == 0 || counted.requests < firstRefused) return true;
    errno = ENOMEM;
    return false;
}

static void *Taken(void *block) {
    if (counting && block != nullptr) ++counted.live;
    return block;
}

extern "C" {

void *__real_malloc(std::size_t bytes);
void *__real_calloc(std::size_t count, std::size_t bytes);
void *__real_realloc(void *block, std::size_t bytes);
void __real_free(void *block);

void *__wrap_malloc(std::size_t bytes);
void *__wrap_calloc(std::size_t count, std::size_t bytes);
void *__wrap_realloc(void *block, std::size_t bytes);
void __wrap_free(void *block);

void *__wrap_malloc(std::size_t bytes) { return Granted(bytes) ? Taken(__real_malloc(bytes)) : nullptr; }

void *__wrap_calloc(std::size_t count, std::size_t bytes) {
    return Granted(count * bytes) ? Taken(__real_calloc(count, bytes)) : nullptr;
}

void *__wrap_realloc(void *block, std::size_t bytes) {
    if (!Granted(bytes)) return nullptr;
    return block == nullptr ? Taken(__real_realloc(nullptr, bytes)) : __real_realloc(block, bytes);
}

void __wrap_free(void *block) {
    if (counting && block != nullptr) --counted.live;
    __real_free(block);
}

} // extern "C"
