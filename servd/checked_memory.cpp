// SPDX-License-Identifier: MIT
// checked_memory: the one place where the daemon gives up for want of memory.
#include "servd/checked_memory.h"

#include "util/ktl_strings.h"

#include <cstdio>
#include <cstdlib>

[[noreturn]] static void GiveUp() {
    static const char message[] = "out of memory";
    (void)std::fwrite(message, 1, sizeof message - 1, stderr);
    std::exit(1);
}

void *CheckedCalloc(std::size_t count, std::size_t bytes) {
    void *block = std::calloc(count, bytes);
    if (block == nullptr) GiveUp();
    return block;
}

void *CheckedRealloc(void *block, std::size_t bytes) {
    void *moved = std::realloc(block, bytes);
    if (moved == nullptr) GiveUp();
    return moved;
}

char *CheckedCopy(const char *text) {
    char *copy = _ktl_strdup(text);
    if (copy == nullptr && text != nullptr) GiveUp();
    return copy;
}
