// SPDX-License-Identifier: MIT
// operations: what the Win32 registry calls do, on keys named by handles and paths.
//
// Every function returns a Win32 code: 0; 6 for a handle that was never given out; 1018 for a key that has been
// deleted; 112, 8 or 1016 when the database cannot be written (a text goes to stderr); and what stands beside it. What
// is changed is changed at once, and stored when its group is committed (group.h): `isProvisional` says whether the
// answer has to wait for that. A path is names of keys with one backslash between them; one at its end is allowed, an
// empty path is the key itself. Some roots show keys below other roots (views.h). Pointers handed back are borrowed
// until the next change.
#pragma once

#include "registry/limits.h"
#include "tvregd/group.h"

// Also 2 when there is no such key; 161 for a malformed path.
[[nodiscard]] std::uint32_t OpenKey(Registry &registry, std::uint32_t handle, std::string_view path, Key **key);

// Opens a key, making what is missing on the way; a new key has its seeds (seeds.h). keyClass and options
// (REG_OPTION_VOLATILE) are for the keys made.
//   disposition  REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY
// Also 161; 87 for a name that is too long, a key that is too deep or other options; 1021 for a lasting key below a
// volatile one; 8 when there are eight million keys.
[[nodiscard]] std::uint32_t CreateKey(Registry &registry, std::uint32_t handle, std::string_view path,
                                      const std::optional<std::string> &keyClass, std::uint32_t options, Key **key,
                                      std::uint32_t *disposition);

// Makes the key that a root shows (views.h), where `key` is the root itself because that is not there; leaves any other
// key as it is.
[[nodiscard]] std::uint32_t MakeShown(Registry &registry, Key **key);

// Deletes a key with its values and everything below it. Also 2; 161; 5 for a root and for a
// key with a file behind it (hives.h).
[[nodiscard]] std::uint32_t DeleteKey(Registry &registry, std::uint32_t handle, std::string_view path);

// A handle holds nothing. Returns 0 also for a deleted key.
[[nodiscard]] std::uint32_t CloseKey(Registry &registry, std::uint32_t handle);

// Brings all that was acknowledged onto the disk, not only this key. Where every commit does that, nothing is to do.
[[nodiscard]] std::uint32_t FlushKey(Registry &registry, std::uint32_t handle);

// Also 259 for an index behind the last one.
[[nodiscard]] std::uint32_t SubKeyAt(Registry &registry, std::uint32_t handle, std::uint32_t index, const Key **subKey);
[[nodiscard]] std::uint32_t ValueAt(Registry &registry, std::uint32_t handle, std::uint32_t index, const Value **value);

// Finds a value; an empty name is the unnamed one. Also 2.
[[nodiscard]] std::uint32_t QueryValue(Registry &registry, std::uint32_t handle, std::string_view name,
                                       const Value **value);

// Sets a value, which keeps its place and the case of its name when it exists. Also 87 for a name that is too long,
// 223 for data that is.
[[nodiscard]] std::uint32_t SetValue(Registry &registry, std::uint32_t handle, std::string_view name,
                                     std::uint32_t type, std::string_view data);

// Also 2.
[[nodiscard]] std::uint32_t DeleteValue(Registry &registry, std::uint32_t handle, std::string_view name);
