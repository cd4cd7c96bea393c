// SPDX-License-Identifier: MIT
// text: how wide texts are on a terminal.
#pragma once

#include <string_view>

// Columns that a printable text takes.
[[nodiscard]] std::size_t ShownWidth(std::string_view printable);
