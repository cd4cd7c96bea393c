// SPDX-License-Identifier: MIT
// string_list: multi-strings as lists of strings.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The strings of a multi-string up to the first empty one or the end of the bytes, terminated or not.
[[nodiscard]] std::vector<std::string> SplitMultiString(std::string_view bytes);

// The multi-string of strings of which none is empty, its last terminator included; one zero byte for no strings.
[[nodiscard]] std::string JoinMultiString(const std::vector<std::string> &strings);
