// SPDX-License-Identifier: MIT
// hives: keys that come from files and go to files (hive_file.h).
//
// A hive that is loaded is a key right below HKEY_LOCAL_MACHINE or HKEY_USERS whose content lies in the database like
// any other's, so that writes to it are as safe as all others and it is there after a restart; its file is read when it
// is loaded and written when it is unloaded.
//
//   state of a key   event          next state
//   ordinary         LoadHive       makes the key: loaded
//   loaded           UnloadHive     its file is written, the key is gone
//   any of these     ReplaceHive    the same, with a replacement: its old file is written, and cannot be deleted
//   with one         next start     old file written again, content replaced, the same without a replacement
//   loaded with one  UnloadHive     old file written again, the new content goes to its own file, the key is gone
//
// Every operation expects that no group is open (group.h), and ends with its changes in the database, or undone and
// with files that it has made removed. Paths are absolute names on this machine, and files are opened as the daemon's
// user: who may ask for that is for the caller to judge. The codes of operations.h and of hive_file.h, and what stands
// beside each. Everybody waits while they last.
#pragma once

#include "tvregd/operations.h"

// Writes a key with all that lasts below it to a new file. Also 183 when there is a file.
[[nodiscard]] std::uint32_t SaveKey(Registry &registry, std::uint32_t handle, const std::string &file);

// Puts what a file holds in the place of the values and subkeys of a key, which keeps its name and class. Below a
// volatile key all of it is volatile.
//   flags  REG_FORCE_RESTORE and REG_NO_LAZY_FLUSH change nothing; others answer 87
// Also 5 for a root with a hive below it; 87 when it would hang too deep; 32 for a file of the daemon.
[[nodiscard]] std::uint32_t RestoreKey(Registry &registry, std::uint32_t handle, const std::string &file,
                                       std::uint32_t flags);

// Makes a key of a file's content. Also 87 unless the handle is HKEY_LOCAL_MACHINE or HKEY_USERS and the name one that
// a key can have; 161 for a path; 183 when there is a key of the name; 32 for a file that is loaded or the daemon's.
[[nodiscard]] std::uint32_t LoadHive(Registry &registry, std::uint32_t handle, std::string_view name,
                                     const std::string &file);

// Writes a loaded hive to its file and takes its key out of the registry. Also 2 when there is no such key; 87 for one
// that was not loaded.
[[nodiscard]] std::uint32_t UnloadHive(Registry &registry, std::uint32_t handle, std::string_view name);

// Has the content of a key right below HKEY_LOCAL_MACHINE or HKEY_USERS replaced when the daemon starts next, or when
// it is unloaded, by what the new file holds now. The old file is written at once, with what the key holds now. Also 2;
// 87 for another key; 183 when there is an old file already; 32 for a file of the daemon.
[[nodiscard]] std::uint32_t ReplaceHive(Registry &registry, std::uint32_t handle, std::string_view path,
                                        const std::string &newFile, const std::string &oldFile);

// Makes the replacements that were asked for, before anything is served. What fails is told on stderr, leaves the key
// as it is and is tried again at the next start.
void MakeReplacements(Registry &registry);
