// SPDX-License-Identifier: MIT
// slow_disk: fdatasync in libc's place; it syncs as ever, once it has taken the time that the test says.
#include "tests/support/slow_disk.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

static SlowDisk *disk = nullptr;

[[gnu::constructor]] static void MapDisk() {
    const char *path = std::getenv("TV_SLOW_DISK");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0) return;
    void *mapped = mmap(nullptr, sizeof(SlowDisk), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped != MAP_FAILED) disk = static_cast<SlowDisk *>(mapped);
    (void)close(file);
}

extern "C" int fdatasync(int descriptor) {
    if (disk != nullptr) {
        ++disk->syncs;
        (void)usleep(static_cast<useconds_t>(disk->syncMs) * 1000);
        if (disk->fails != 0) {
            errno = disk->fails;
            return -1;
        }
    }
    return static_cast<int>(syscall(SYS_fdatasync, descriptor));
}
