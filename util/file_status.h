// SPDX-License-Identifier: MIT
// file_status: what the kernel says of a file, at every word size and time.
//
// Where time_t has 32 bits, stat(2) and its like fail with EOVERFLOW for a file that was written after 2038: the answer
// does not fit. statx(2) answers in 64 bits everywhere.
#pragma once

#include <sys/types.h>

#include <cstdint>

struct FileStatus {
    mode_t mode = 0; // type and permissions
    uid_t owner = 0;
    std::uint64_t bytes = 0;
    std::uint64_t inode = 0;
    std::int64_t writtenAt = 0; // seconds since the epoch
};

// Each returns whether the file could be asked, with errno else; *status is unchanged then.
[[nodiscard]] bool LookAtFile(int descriptor, FileStatus *status);
[[nodiscard]] bool LookAtPath(const char *path, FileStatus *status); // of the file that a link leads to
[[nodiscard]] bool LookAtLink(const char *path, FileStatus *status); // of the link itself
