// SPDX-License-Identifier: MIT
// port_entry: the daemon's entry in the port mapper, made again whenever the port mapper has lost it.
//
// A port mapper that is started anew knows of nobody, and new clients would not find the daemon any more. So a thread
// of its own, which shares nothing with the daemon but this, keeps a connection to the port mapper; when that ends it
// connects again, at growing intervals, and enters the program.
#pragma once

#include <cstdint>

// Starts to keep the entry of the program at a port, over TCP, which has been made. Once in a process; signals that the
// process waits for have to be blocked by now.
void KeepPortEntry(std::uint32_t program, std::uint32_t version, std::uint16_t port);

// Stops it; then nothing stands in the way of leaving the port mapper. May wait for as long as the port mapper hangs.
void StopKeepingPortEntry();
