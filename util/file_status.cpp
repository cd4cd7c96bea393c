// SPDX-License-Identifier: MIT
// file_status: statx, and the fields that are wanted of it.
#include "util/file_status.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace {

bool Look(int folder, const char *path, int flags, FileStatus *status) {
    struct statx found = {};
    if (statx(folder, path, flags, STATX_BASIC_STATS, &found) != 0) return false;
    *status = {.mode = found.stx_mode,
               .owner = found.stx_uid,
               .bytes = found.stx_size,
               .inode = found.stx_ino,
               .writtenAt = found.stx_mtime.tv_sec};
    return true;
}

} // namespace

bool LookAtFile(int descriptor, FileStatus *status) { return Look(descriptor, "", AT_EMPTY_PATH, status); }

bool LookAtPath(const char *path, FileStatus *status) { return Look(AT_FDCWD, path, 0, status); }

bool LookAtLink(const char *path, FileStatus *status) { return Look(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, status); }
