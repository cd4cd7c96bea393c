// SPDX-License-Identifier: MIT
// text: names and texts as a terminal shows them.
//
// Names are bytes, and anybody who may create services chooses them: what a terminal would act on must not reach it.
#pragma once

#include <string>

// The text with every byte that is no visible character of the locale as \xNN.
[[nodiscard]] std::string Printable(const std::string &text);

// Columns that a printable text takes.
[[nodiscard]] std::size_t ShownWidth(const std::string &printable);
