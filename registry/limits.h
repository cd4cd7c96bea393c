// SPDX-License-Identifier: MIT
// limits: what tvregd takes. What is longer or deeper it refuses; another registry daemon may take less.
#pragma once

#include <cstddef>
#include <cstdint>

// Bytes of a key's or a value's name: the 255 and 16,383 characters of Win32, each of up to four bytes, and as many in
// a key's as the service daemon reads of a service's name.
constexpr std::size_t maxKeyNameBytes = 1023;
constexpr std::size_t maxValueNameBytes = 16383 * std::size_t{4};
constexpr std::size_t maxValueBytes = std::size_t{16} << 20; // of data
constexpr std::uint32_t maxKeyDepth = 512;                   // of a key that is made
