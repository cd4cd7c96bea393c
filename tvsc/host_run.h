// SPDX-License-Identifier: MIT
// host_run: the process that works on one machine's behalf, and what it writes.
#pragma once

#include "tvsc/exit_status.h"

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

struct HostRun {
    std::string host;
    std::vector<std::string> command; // the program's path or name, and its arguments
    int exitStatus = EXIT_DONE;
    bool timedOut = false;
    bool wroteTooMuch = false; // and nothing is kept of it: see mostBytes
    std::string output;        // all of it; of a live run what is left of a line
    std::string error;

    pid_t process = 0;
    int outputEnd = -1; // -1 once nothing comes any more
    int errorEnd = -1;
    std::chrono::steady_clock::time_point limit = {};
    std::chrono::steady_clock::time_point killAt = {}; // once it was asked to end
};

struct HostRunRules {
    unsigned parallel = 1;
    double timeoutSec = 0;                          // of each run; 0: none
    std::size_t mostBytes = std::size_t{256} << 20; // kept of all runs: past that, what wrote most is given up
    // Takes each line as it comes; what is written is not kept then. Nothing: it is kept.
    std::function<void(const HostRun &run, const std::string &line)> takeLine = {};
    std::function<void(const HostRun &run, const std::string &line)> takeErrorLine = {}; // alike
};

// Runs them all, at most so many at a time, and waits for their end. An end of this program ends them, too; it ends as
// by SIGPIPE when lines are taken as they come and nobody reads standard output any more.
void RunSideBySide(std::vector<HostRun> *runs, const HostRunRules &rules);
