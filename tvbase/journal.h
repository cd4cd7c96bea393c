// SPDX-License-Identifier: MIT
// journal: where the entries of the event log go.
#pragma once

#include "tv/wintypes.h"

#include <string>
#include <vector>

// One entry: what a reader of the log sees, and every field that the journal keeps, "NAME=value" with any bytes behind
// the first equals sign.
struct LogEntry {
    int priority; // of syslog(3)
    std::string source;
    std::string text;
    std::vector<std::string> fields;
};

// Hands the entry to the systemd journal where it runs, through libsystemd where that is installed; to syslog(3)
// otherwise. 29 ERROR_WRITE_FAULT when the journal refuses it; syslog(3) does not tell.
[[nodiscard]] DWORD WriteLogEntry(const LogEntry &entry);
