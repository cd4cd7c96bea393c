// SPDX-License-Identifier: MIT
// limits: how long a peer is waited for and how much is taken of it, at both ends of a connection.
//
// Whatever length a peer declares, memory is taken as bytes arrive: a bound on bytes is a bound on what it has sent.
#pragma once

#include <cstddef>

// --- reaching a program (dial) ---

inline constexpr int connectTimeoutMs = 5000;     // for a port to accept
inline constexpr int portMapperTimeoutMs = 10000; // for the port mapper's answer
// For the whole way: the port mapper accepts, answers, and the program accepts.
inline constexpr int dialTimeoutMs = connectTimeoutMs + portMapperTimeoutMs + connectTimeoutMs;

// One reply. What bounds it is the address space, in which it stands up to four times: as received, in memory that
// doubles as it grows, decoded, and in the caller's own buffer.
inline constexpr std::size_t maxReplyBytes = std::size_t{sizeof(void *) > 4 ? 1024 : 256} << 20;

// The same from programs that answer a few words, and that anybody may have registered: the port mapper and service
// processes.
inline constexpr std::size_t maxShortReplyBytes = std::size_t{64} << 10;

// --- being reached (door) ---

inline constexpr std::size_t maxRequestBytes = std::size_t{16} << 20;
inline constexpr std::size_t maxHeldBytes = std::size_t{256} << 20;      // of all requests and unread replies together
inline constexpr std::size_t maxUnreadReplyBytes = std::size_t{1} << 20; // beyond it a connection's requests wait
inline constexpr std::size_t maxHeldReplyBytes = std::size_t{16} << 20;  // beyond it the server is to release them
