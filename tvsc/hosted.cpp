// SPDX-License-Identifier: MIT
// hosted: the state file and the processes that it names.
#include "tvsc/hosted.h"

#include "tvsc/logs.h"
#include "tvsc/words.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::size_t shownLines = 5;

std::string UsageText(const TreeUsage &usage) {
    return fmt::format("{} process{}, {:.1f} MiB, {:.2f} s of CPU", usage.processes, usage.processes == 1 ? "" : "es",
                       static_cast<double>(usage.memoryBytes) / (1024 * 1024), static_cast<double>(usage.cpuMs) / 1000);
}

} // namespace

std::optional<HostedView> ReadHosted(const std::string &name) {
    HostedView view;
    uid_t owner = 0;
    if (!ReadHostState(name, &view.state, &owner)) return std::nullopt;
    view.hostLives = IsHostAlive(view.state, owner);
    view.programLives = IsProgramAlive(view.state, owner);
    if (view.hostLives) view.usage = UsageOfDescendants(view.state.host);
    if (view.state.log != "journal") view.lastLines = LastLines(name, shownLines);
    return view;
}

std::vector<std::string> HostedLines(const HostedView &view, bool failed) {
    std::vector<std::string> lines;
    const HostState &state = view.state;
    const std::int64_t now = EpochMs();
    if (view.programLives) {
        lines.push_back(fmt::format("  process: {} {}, for {}{}", state.program, NameOfProcess(state.program),
                                    DurationText(now - state.startedAtMs),
                                    view.hostLives ? fmt::format(" (tvhost {})", state.host) : ", without its tvhost"));
        if (view.hostLives) lines.push_back("    takes: " + UsageText(view.usage));
    }
    if (view.hostLives && state.restarts != 0) lines.push_back(fmt::format(" restarts: {}", state.restarts));
    if (view.hostLives && state.nextAttemptMs != 0) {
        lines.push_back("     next: in " + DurationText(state.nextAttemptMs - now));
    }
    if (view.programLives && !state.says.empty()) lines.push_back("     says: " + state.says);
    const bool isReasonTrue = failed || (view.hostLives && state.nextAttemptMs != 0);
    if (isReasonTrue && !state.reason.empty()) lines.push_back("   reason: " + state.reason);
    for (const std::string &line : view.lastLines) {
        lines.push_back((&line == &view.lastLines.front() ? "      log: " : "           ") + line);
    }
    return lines;
}
