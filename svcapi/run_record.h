// SPDX-License-Identifier: MIT
// run_record: the moments of a service's runs, for whoever asks later how a start went.
//
// The file is NAME.run (runtime_file.h) and stays when the service ends. Its first line is the first run under the
// present daemon, which is that of an automatic start where there was one, the second line the latest run where that
// is another one. A line has the numbers of RunRecord in their order. Moments are those of the kernel's clock, so that
// they can be held against the starts of processes: nobody sets it.
#pragma once

#include "tv/wintypes.h"

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// Moments are milliseconds since the boot, 0 for one that has not come.
struct RunRecord {
    pid_t process = 0;
    std::uint64_t startTicks = 0; // when it was forked, as in process_stat.h
    pid_t launcher = 0;           // its parent: the daemon
    std::uint64_t launcherStartTicks = 0;
    std::int64_t askedMs = 0;   // the start request came
    std::int64_t runningMs = 0; // the service reported that it runs
    std::int64_t heardMs = 0;   // the daemon took a first report: a daemon that starts takes none before it has started
                                // all that starts with it
    std::int64_t endedMs = 0;   // the service reported that it is stopped
    DWORD exitCode = 0;         // what it reported then
};

constexpr char runSuffix[] = ".run";

// A run of this process, which has just been asked to start a service.
[[nodiscard]] RunRecord RunOfThisProcess();

// Begins its line; where that cannot be written, less is known.
void BeginRunRecord(const std::string &serviceName, const RunRecord &run);

// Writes it into its line, unless a later process has begun one since.
void WriteRunRecord(const std::string &serviceName, const RunRecord &run);

// The runs in the file, at most two.
[[nodiscard]] std::vector<RunRecord> ReadRunRecords(const std::string &serviceName);
