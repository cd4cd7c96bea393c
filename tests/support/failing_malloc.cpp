// SPDX-License-Identifier: MIT
// failing_malloc: the malloc family that is put in place of libc's by the linker's --wrap.
#include "tests/support/failing_malloc.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

static FailingMalloc *control = nullptr;

[[gnu::constructor]] static void MapControl() {
    const char *path = std::getenv("TV_FAILING_MALLOC");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0) return;
    void *mapped = mmap(nullptr, sizeof(FailingMalloc), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped != MAP_FAILED) control = static_cast<FailingMalloc *>(mapped);
    (void)close(file);
}

static bool IsRefused() {
    if (control == nullptr || control->countdown == 0 || --control->countdown != 0) return false;
    ++control->refused;
    errno = ENOMEM;
    return true;
}

extern "C" {

void *__real_malloc(std::size_t bytes);
void *__real_calloc(std::size_t count, std::size_t bytes);
void *__real_realloc(void *block, std::size_t bytes);

void *__wrap_malloc(std::size_t bytes);
void *__wrap_calloc(std::size_t count, std::size_t bytes);
void *__wrap_realloc(void *block, std::size_t bytes);

void *__wrap_malloc(std::size_t bytes) { return IsRefused() ? nullptr : __real_malloc(bytes); }
void *__wrap_calloc(std::size_t count, std::size_t bytes) {
    return IsRefused() ? nullptr : __real_calloc(count, bytes);
}
void *__wrap_realloc(void *block, std::size_t bytes) { return IsRefused() ? nullptr : __real_realloc(block, bytes); }
}
