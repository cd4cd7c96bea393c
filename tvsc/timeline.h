// SPDX-License-Identifier: MIT
// timeline: how the last automatic start went, service by service.
//
// What the daemon starts is read from the registry, when each start went through what from the records that services
// leave (svcapi/run_record.h). The daemon is not asked, and need not run.
#pragma once

#include "svcapi/run_record.h"
#include "tvsc/session.h"

#include <optional>

// One service that is started with the daemon, in its turn.
struct TimelineStep {
    std::string name;
    std::optional<RunRecord> run; // nothing: its process was not started, or has never been asked to start the service
    bool runsAgain = false;       // it has been started once more since
};

struct Timeline {
    pid_t daemon = 0;               // 0: no service has left a record
    std::int64_t daemonStartMs = 0; // here and below milliseconds since the boot
    std::int64_t answeredMs = 0;    // the daemon began to answer, as far as services know; 0: it has not
    std::int64_t endMs = 0;         // of all that is shown
    std::vector<TimelineStep> steps;
};

// When the process of a run was forked.
[[nodiscard]] std::int64_t LaunchedMs(const RunRecord &run);
// When a start was over: it ran, or had ended; 0 while it is under way.
[[nodiscard]] std::int64_t StartedMs(const RunRecord &run);

// "1.234 s".
[[nodiscard]] std::string SecondsText(std::int64_t ms);

// The picture.
[[nodiscard]] std::string TimelineSvg(const Timeline &timeline, const std::string &title);

// Text bars, SVG, or JSON. Returns the exit status.
int RunTimeline(const Options &options, bool asSvg);
