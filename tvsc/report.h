// SPDX-License-Identifier: MIT
// report: telling what became of what was asked. Data goes to standard output, everything else to standard error.
#pragma once

#include "tvsc/session.h"

// Notes a result; a success is told on stdout, a failure on stderr, unless JSON is wanted.
void Done(Session &session, const std::string &name, const std::string &action, const std::string &text);
void Failed(Session &session, const std::string &name, const std::string &action, DWORD code,
            const std::string &text = "");
// A line on stderr that belongs to no result.
void Note(const Session &session, const std::string &line);
// The exit status that follows from the results: the first failure's.
[[nodiscard]] int StatusOf(const Session &session);
// Writes the results as JSON when that is wanted. Returns the exit status.
[[nodiscard]] int Finish(const Session &session);
