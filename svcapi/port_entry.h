// SPDX-License-Identifier: MIT
// port_entry: this process's entry in the port mapper, under which the daemon finds it.
#pragma once

#include <cstdint>

// The number of this process's program.
[[nodiscard]] std::uint32_t ServiceProgramNumber();

// Enters the TCP port of this process's program in place of what a dead process of the same id may have
// left behind, and makes sure that it is ours. Tries for five seconds. Returns false, after a line on stderr that tells
// why, when the port mapper does not take it or the left-over belongs to another user; after a second and without a
// word when there is no port mapper.
[[nodiscard]] bool EnterPort(std::uint16_t port);

// Takes the entry away.
void RemovePort();
