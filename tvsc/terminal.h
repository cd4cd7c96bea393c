// SPDX-License-Identifier: MIT
// terminal: what standard output can show, told once for the life of the process.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

enum class Colour { none, green, yellow, red, faint };

enum class ColourWhen { automatic, always, never };

// Automatic: on a terminal that knows colours, unless NO_COLOR is set and not empty.
void ChooseColours(ColourWhen when);

// A text in a colour where colours are shown, else as it is.
[[nodiscard]] std::string Coloured(Colour colour, const std::string &text);

// The columns of the terminal that standard output is; nothing where it is none. COLUMNS overrides what it says.
[[nodiscard]] std::optional<std::size_t> TerminalWidth();
// Its lines; nothing where it is none or does not tell.
[[nodiscard]] std::optional<std::size_t> TerminalHeight();
