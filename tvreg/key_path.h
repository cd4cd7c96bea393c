// SPDX-License-Identifier: MIT
// key_path: keys as people write them: a root and a path below it.
#pragma once

#include "tv/winreg.h"

#include <string>
#include <string_view>

struct KeyPath {
    HKEY root = 0;
    std::string path;      // below the root, names with one backslash between them; empty: the root itself
    std::string host = {}; // the machine; empty: the one that all keys are of
};

// Reads "HKLM\a\b", "HKEY_LOCAL_MACHINE\a\b" and, when there is no backslash in it, "HKLM/a/b"; letter case in the name
// of the root does not matter, one separator at the end is dropped. Returns false for an unknown root or an empty name.
[[nodiscard]] bool ParseKeyPath(std::string_view text, KeyPath *key);

// The same, or one of another machine: "\\HOST\HKLM\a".
[[nodiscard]] bool ParseKeyOfHost(std::string_view text, KeyPath *key);

// Writes it with the long name of the root and backslashes.
std::string KeyPathText(const KeyPath &key);

// The key of a name below another.
KeyPath Below(const KeyPath &key, std::string_view name);
