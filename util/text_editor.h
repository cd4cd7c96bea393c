// SPDX-License-Identifier: MIT
// text_editor: a text in a file of the user's own, and the user's editor on it.
#pragma once

#include <string>

// Writes a text to a new file that only its owner may read, in TMPDIR or /tmp, and onto the disk.
//   name, suffix  the file is called NAME.XXXXXX and the suffix
// Returns its path; empty, and a text in *problem, when it cannot be written.
[[nodiscard]] std::string NewTextFile(const std::string &name, const std::string &suffix, const std::string &text,
                                      std::string *problem);

// Runs VISUAL, EDITOR or vi on a file, which may hold options: a shell takes them apart. Blocks until it ends. False,
// and a text in *problem, when it fails.
[[nodiscard]] bool RunEditor(const std::string &file, std::string *problem);
