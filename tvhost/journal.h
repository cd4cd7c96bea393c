// SPDX-License-Identifier: MIT
// journal: lines for the journal of this machine, by its native protocol.
#pragma once

#include <string>
#include <string_view>

constexpr char journalSocketPath[] = "/run/systemd/journal/socket";

// Opens a socket for it. Returns -1 where there is no journal.
[[nodiscard]] int OpenJournal();

// Sends a line with the service's name as its identifier; waits while the journal is busy. A long line goes through a
// file in memory. Returns false with errno when it cannot be sent.
//   priority  as of syslog(3)
[[nodiscard]] bool SendToJournal(int socket, const std::string &serviceName, int priority, std::string_view line);
