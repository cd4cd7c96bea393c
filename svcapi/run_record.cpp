// SPDX-License-Identifier: MIT
// run_record: lines of numbers.
#include "svcapi/run_record.h"

#include "svcapi/process_stat.h"
#include "svcapi/runtime_file.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <sstream>

namespace {

constexpr std::size_t longestText = 512;
constexpr std::size_t mostRuns = 2;

bool IsSameRun(const RunRecord &a, const RunRecord &b) {
    return a.process == b.process && a.startTicks == b.startTicks && a.askedMs == b.askedMs;
}

bool HasSameLauncher(const RunRecord &a, const RunRecord &b) {
    return a.launcher == b.launcher && a.launcherStartTicks == b.launcherStartTicks;
}

std::string LineOf(const RunRecord &run) {
    char line[longestText / mostRuns] = {};
    (void)std::snprintf(line, sizeof line,
                        "%d %" PRIu64 " %d %" PRIu64 " %" PRId64 " %" PRId64 " %" PRId64 " %" PRId64 " %u\n",
                        static_cast<int>(run.process), run.startTicks, static_cast<int>(run.launcher),
                        run.launcherStartTicks, run.askedMs, run.runningMs, run.heardMs, run.endedMs, run.exitCode);
    return line;
}

bool ParseLine(const std::string &line, RunRecord *run) {
    return std::sscanf(line.c_str(), "%d %" SCNu64 " %d %" SCNu64 " %" SCNd64 " %" SCNd64 " %" SCNd64 " %" SCNd64 " %u",
                       &run->process, &run->startTicks, &run->launcher, &run->launcherStartTicks, &run->askedMs,
                       &run->runningMs, &run->heardMs, &run->endedMs, &run->exitCode) == 9;
}

} // namespace

RunRecord RunOfThisProcess() {
    RunRecord run;
    run.process = getpid();
    run.startTicks = StartOfProcess(run.process);
    run.launcher = getppid();
    run.launcherStartTicks = StartOfProcess(run.launcher);
    run.askedMs = MsSinceBoot();
    return run;
}

void BeginRunRecord(const std::string &serviceName, const RunRecord &run) {
    const std::vector<RunRecord> before = ReadRunRecords(serviceName);
    const bool keepsFirst = !before.empty() && HasSameLauncher(before.front(), run);
    (void)WriteRuntimeFile(serviceName, runSuffix, (keepsFirst ? LineOf(before.front()) : "") + LineOf(run));
}

void WriteRunRecord(const std::string &serviceName, const RunRecord &run) {
    std::vector<RunRecord> runs = ReadRunRecords(serviceName);
    if (runs.empty() || !IsSameRun(runs.back(), run)) return;
    runs.back() = run;
    std::string text;
    for (const RunRecord &one : runs) {
        text += LineOf(one);
    }
    (void)WriteRuntimeFile(serviceName, runSuffix, text);
}

std::vector<RunRecord> ReadRunRecords(const std::string &serviceName) {
    for (const RuntimeFile &file : ReadRuntimeFiles(serviceName, runSuffix, longestText)) {
        std::vector<RunRecord> runs;
        std::istringstream lines(file.text);
        RunRecord run;
        for (std::string line; runs.size() < mostRuns && std::getline(lines, line) && ParseLine(line, &run);) {
            runs.push_back(run);
        }
        if (!runs.empty()) return runs;
    }
    return {};
}
