// SPDX-License-Identifier: MIT
// timeline: reading the records, and the text bars.
#include "tvsc/timeline.h"

#include "svcapi/process_stat.h"
#include "tvhost/log.h"
#include "tvhost/state_file.h"
#include "tvsc/boot_plan.h"
#include "tvsc/json_output.h"
#include "tvsc/liveness.h"
#include "tvsc/report.h"
#include "tvsc/table.h"
#include "tvsc/words.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::size_t leastBar = 10;
constexpr std::size_t mostBar = 100;
constexpr std::size_t defaultWidth = 80;
constexpr std::size_t widthBesideBar = 52; // the other columns, with names and remarks of some length

// The runs of the latest daemon that any of these services was started by.
void TakeLatestDaemon(const std::vector<std::vector<RunRecord>> &runs, Timeline *timeline) {
    std::uint64_t latestTicks = 0;
    for (const std::vector<RunRecord> &ofOne : runs) {
        for (const RunRecord &run : ofOne) {
            if (run.launcherStartTicks <= latestTicks) continue;
            latestTicks = run.launcherStartTicks;
            timeline->daemon = run.launcher;
        }
    }
    timeline->daemonStartMs = MsOfTicks(latestTicks);
    const auto isOfIt = [&](const RunRecord &run) {
        return run.launcher == timeline->daemon && run.launcherStartTicks == latestTicks;
    };
    for (std::size_t i = 0; i < runs.size(); ++i) {
        for (const RunRecord &run : runs[i]) {
            if (!isOfIt(run)) continue;
            TimelineStep &step = timeline->steps[i];
            step.runsAgain = step.run.has_value();
            if (!step.run) step.run = run;
            const bool isFirst = timeline->answeredMs == 0 || run.heardMs < timeline->answeredMs;
            if (run.heardMs != 0 && isFirst) timeline->answeredMs = run.heardMs;
        }
    }
}

// What was started after the daemon had begun to answer was started by somebody.
void DropLaterRuns(Timeline *timeline) {
    for (TimelineStep &step : timeline->steps) {
        const bool isLater = step.run && timeline->answeredMs != 0 && LaunchedMs(*step.run) > timeline->answeredMs;
        if (!isLater) continue;
        step.run.reset();
        step.runsAgain = true;
    }
    timeline->endMs = timeline->answeredMs;
    for (const TimelineStep &step : timeline->steps) {
        if (!step.run) continue;
        const std::int64_t started = StartedMs(*step.run);
        timeline->endMs = std::max(timeline->endMs, started != 0 ? started : MsSinceBoot());
    }
}

Timeline ReadTimeline(const BootDatabase &database) {
    Timeline timeline;
    std::vector<std::vector<RunRecord>> runs;
    for (const BootStep &step : PlanBoot(database).steps) {
        timeline.steps.push_back({database.services[step.service].name, std::nullopt, false});
        runs.push_back(ReadRunRecords(timeline.steps.back().name));
    }
    TakeLatestDaemon(runs, &timeline);
    DropLaterRuns(&timeline);
    return timeline;
}

std::string TitleOf(const Timeline &timeline) {
    const std::int64_t begunAtMs = EpochMs() - MsSinceBoot() + timeline.daemonStartMs;
    const std::string answered = timeline.answeredMs == 0
                                     ? "it has answered nobody yet"
                                     : "it answered after " + SecondsText(timeline.answeredMs - timeline.daemonStartMs);
    return fmt::format("servd, process {}, started {}; {}", timeline.daemon, Timestamp(begunAtMs), answered);
}

std::string RemarkOn(const TimelineStep &step) {
    if (!step.run) {
        return step.runsAgain ? "not with the daemon: started later"
                              : "no record: its process was not started, or was never asked to start it";
    }
    std::string remark;
    if (step.run->runningMs == 0 && step.run->endedMs == 0) remark = "still starting, or gone without a word";
    if (step.run->endedMs != 0) {
        remark = step.run->exitCode == 0 ? "stopped since" : "stopped since: " + CodeText(step.run->exitCode);
    }
    if (step.runsAgain) remark += remark.empty() ? "started again since" : "; started again";
    return remark;
}

// Blanks, then what the launch took, then what the service took to run.
std::string BarOf(const Timeline &timeline, const RunRecord &run, std::size_t width) {
    const bool utf8 = CharsetShown() == Charset::utf8;
    const std::int64_t span = std::max<std::int64_t>(timeline.endMs - timeline.daemonStartMs, 1);
    const auto columnOf = [&](std::int64_t ms) {
        const std::int64_t at = std::clamp<std::int64_t>(ms - timeline.daemonStartMs, 0, span);
        return static_cast<std::size_t>(at) * width / static_cast<std::size_t>(span);
    };
    const std::size_t launched = std::min(columnOf(LaunchedMs(run)), width - 1);
    const std::size_t asked = std::max(columnOf(run.askedMs), launched);
    const std::int64_t startedMs = StartedMs(run);
    const std::size_t started = std::max({columnOf(startedMs != 0 ? startedMs : timeline.endMs), asked, launched + 1});
    std::string bar(launched, ' ');
    for (std::size_t i = launched; i < started; ++i) {
        bar += i < asked ? (utf8 ? "░" : "-") : (utf8 ? "█" : "#");
    }
    return bar;
}

void PrintTimeline(const Timeline &timeline) {
    const std::size_t available = TerminalWidth().value_or(defaultWidth);
    const std::size_t width = std::clamp(available - std::min(available, widthBesideBar), leastBar, mostBar);
    std::vector<std::vector<std::string>> rows = {{"#", "SERVICE", "AT", "TOOK", "LAUNCH, START", ""}};
    for (const TimelineStep &step : timeline.steps) {
        const std::string number = std::to_string(rows.size());
        if (!step.run) {
            rows.push_back({number, step.name, "-", "-", "", RemarkOn(step)});
            continue;
        }
        const std::int64_t launched = LaunchedMs(*step.run);
        const std::int64_t started = StartedMs(*step.run);
        rows.push_back({number, step.name, SecondsText(launched - timeline.daemonStartMs),
                        started == 0 ? "-" : SecondsText(started - launched), BarOf(timeline, *step.run, width),
                        RemarkOn(step)});
    }
    fmt::print("{}.\n", TitleOf(timeline));
    PrintTable(rows);
}

} // namespace

std::string SecondsText(std::int64_t ms) { return fmt::format("{:.3f} s", static_cast<double>(ms) / 1000); }

std::int64_t LaunchedMs(const RunRecord &run) { return MsOfTicks(run.startTicks); }

std::int64_t StartedMs(const RunRecord &run) { return run.runningMs != 0 ? run.runningMs : run.endedMs; }

int RunTimeline(const Options &options, bool asSvg) {
    Session session;
    session.options = options;
    if (!IsThisMachine(options)) {
        Failed(session, options.host, "timeline", ERROR_NOT_SUPPORTED,
               "the records are on that machine: tvsc --ssh --host reads them there");
        return Finish(session);
    }
    BootDatabase database;
    if (const std::optional<BootFault> fault = ReadBootDatabase(HKEY_LOCAL_MACHINE, &database)) {
        const bool isSilent = fault->code == ERROR_REGISTRY_IO_FAILED;
        Failed(session, isSilent ? options.host : fault->key, "timeline",
               isSilent ? fault->code : DWORD{ERROR_DATABASE_DOES_NOT_EXIST},
               isSilent ? "the registry daemon does not answer" : "nothing is started: try tvsc doctor");
        return Finish(session);
    }
    const Timeline timeline = ReadTimeline(database);
    if (options.json) {
        PrintTimelineJson(options, timeline);
    } else if (timeline.daemon == 0) {
        fmt::print(stderr, "tvsc: no service that is started with the daemon has left a record\n");
    } else if (asSvg) {
        fmt::print("{}", TimelineSvg(timeline, TitleOf(timeline)));
    } else {
        PrintTimeline(timeline);
    }
    return timeline.daemon == 0 ? EXIT_FAILED : EXIT_DONE;
}
