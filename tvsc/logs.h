// SPDX-License-Identifier: MIT
// logs: what services that tvhost runs have written.
//
// Their lines are in files (svcapi/log_place.h) or in the journal, which journalctl shows. The daemon is not asked.
#pragma once

#include "tvsc/session.h"

#include <optional>

struct LogOptions {
    std::string name;
    std::optional<unsigned> lines;  // how many of the last ones; all without it
    std::optional<double> sinceSec; // only those of the last so many seconds
    bool follow = false;            // and those that come, until interrupted
};

// Writes them to standard output, as JSON a document each. Returns the exit status.
int RunLogs(const Options &options, const LogOptions &log);

// The last lines of a service's log file, printable; none where there is no file that may be read.
[[nodiscard]] std::vector<std::string> LastLines(const std::string &name, std::size_t most);

// Notes them, for somebody who wonders what went wrong.
void NoteLastLines(const Session &session, const std::string &name);
