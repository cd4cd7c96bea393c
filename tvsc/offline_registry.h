// SPDX-License-Identifier: MIT
// offline_registry: a .reg file in place of the registry, for what only reads.
#pragma once

#include <string>

// Has the registry functions of this program read the keys of a file from now on: opening, reading and enumerating
// keys. Returns false where the file cannot be read or is no .reg text, with *problem and the line that is to blame.
[[nodiscard]] bool TakeRegistryFile(const std::string &path, std::string *problem);
