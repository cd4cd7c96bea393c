// SPDX-License-Identifier: MIT
// host_output: what the runs on many machines have written, as one.
#pragma once

#include "tvsc/host_run.h"

// A line of standard error, with the machine that it is of.
void PrintHostError(const std::string &host, const std::string &line);

// What is left of what they have written to standard error; and who took too long.
void PrintHostErrors(const std::vector<HostRun> &runs, double timeoutSec);

// One table of services, with a column for the machine; one without an answer has a line that says so.
void PrintHostsServices(const std::vector<HostRun> &runs);

// Each line with its machine in front; one that has written nothing has a line with its exit status.
//   width  columns for the machine
void PrintHostsLines(const std::vector<HostRun> &runs, std::size_t width);
// One line as it comes; of JSON, with the machine as its member host.
void PrintHostLine(const std::string &host, std::size_t width, const std::string &line, bool json);

// One object with what each of them has written.
void PrintHostsJson(const std::vector<HostRun> &runs);
