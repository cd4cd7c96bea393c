// SPDX-License-Identifier: MIT
// progress_line: a line on standard error that is written over until what is waited for has come, where standard error
// is a terminal. For one thread; erasing may be done by any.
#pragma once

#include <string>

// Whether there is a terminal for it.
[[nodiscard]] bool CanShowProgress();

// Shows a text, printable and without a line end, in the place of the one before; what the terminal is too narrow for
// is cut off. Nothing happens where there is no terminal, or when it stands there already.
void ShowProgress(const std::string &text);

// Takes away what stands there. Before anything else is written to standard error.
void EraseProgress();
