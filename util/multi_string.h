// SPDX-License-Identifier: MIT
// multi_string: strings one behind the other, each with its terminating zero, and an empty one behind the last.
//
// Reentrant; nothing here allocates.
#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

// Takes the first string off the front of a multi-string. Returns it without its terminator: empty at the end of the
// list, which is an empty string or the end of the bytes, terminated or not. A string that does have its terminator can
// be used as a C string, at data().
//   rest  the bytes that are left; shorter by the string and its terminator afterwards
inline std::string_view TakeString(std::string_view *rest) {
    const std::string_view string = rest->substr(0, rest->find('\0'));
    rest->remove_prefix(std::min(string.size() + 1, rest->size()));
    return string;
}

// Bytes of a terminated multi-string whose size nobody tells, all terminators counted; 1 when it is empty.
inline std::size_t MultiStringBytes(const char *text) {
    const char *end = text;
    while (*end != '\0') {
        end += std::strlen(end) + 1;
    }
    return static_cast<std::size_t>(end - text) + 1;
}
