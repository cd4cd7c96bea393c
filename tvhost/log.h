// SPDX-License-Identifier: MIT
// log: what a service's program writes, and what tvhost has to say of it, line by line into the service's log.
//
// The log is the journal where there is one, else files (log_file.h), else tvhost's own standard error with the
// service's name in front. A program writes into a pipe; a thread of the log's own reads it, so that a disk that is
// slow holds no control. It loses no line and parts none: while nothing can be written it tries again each second, and
// the program waits for it once its pipe is full. Only a line of more than longestLineBytes is cut into pieces.
#pragma once

#include "tvhost/log_file.h"
#include "tvhost/parameters.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

constexpr std::size_t longestLineBytes = std::size_t{8} * 1024 * 1024;

struct LogStream {
    int readEnd = -1;
    int writeEnd = -1;   // the program's; stays open between two runs
    int priority = 0;    // as of syslog(3)
    std::string partial; // what has come of a line
};

struct Log {
    std::string service;
    LogWhere where = LogWhere::none; // journal, file or none
    bool timestamps = false;
    LogFile file;
    int journal = -1;
    LogStream output, error;
    int wake = -1; // an eventfd: there is something below
    std::thread thread;
    std::unique_ptr<char[]> chunk; // the thread's: what a stream is read into

    std::mutex guard; // what follows
    std::condition_variable flushed;
    std::deque<std::string> said;
    std::uint64_t flushesAsked = 0, flushesDone = 0;
    bool ending = false;
    bool givingUp = false; // what cannot be written now is lost
};

// Opens the log that the parameters ask for and starts its thread. Returns why it is not the one that was asked for,
// empty when it is.
[[nodiscard]] std::string OpenLog(const std::string &serviceName, const HostParameters &parameters, Log *log);

// Where it goes, for the state file: "journal", a path, or empty.
[[nodiscard]] std::string LogPlaceText(const Log &log);

// Adds a line of tvhost's own; does not wait. It is for people and printable already.
void SayInLog(Log *log, const std::string &line);

// Waits until everything that was written up to now stands in the log, ends of lines that never came included; for a
// few seconds at most. Returns false when they have passed.
bool FlushLog(Log *log);

// Flushes, ends the thread, and closes everything.
void CloseLog(Log *log);

// A moment as lines are stamped: UTC, ISO 8601 with milliseconds.
[[nodiscard]] std::string Timestamp(std::int64_t epochMs);
