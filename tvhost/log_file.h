// SPDX-License-Identifier: MIT
// log_file: a file of lines that is put aside when it is large enough.
//
// A file is never larger than the limit unless a single line is; no line is parted between two files. The older ones
// bear numbers, 1 for the newest of them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct LogFile {
    std::string folder;
    std::string service;
    std::uint64_t mostBytes = 0; // 0: no limit
    unsigned olderFiles = 0;     // how many are kept
    int file = -1;               // -1: to be opened
    std::uint64_t bytes = 0;     // in it
};

// Appends whole lines, each with its end. Returns how many bytes of them stand in the files, which is where to go on
// after a failure; errno tells why it is less than all.
[[nodiscard]] std::size_t AppendLines(LogFile *log, std::string_view lines);

void CloseLogFile(LogFile *log);
