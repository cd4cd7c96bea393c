// SPDX-License-Identifier: MIT
// watch: one look after the other, and what is shown of them.
//
// A daemon that does not answer is told once and looked for at each further look: what has changed meanwhile is told
// when it is there again.
#include "tvsc/watch.h"

#include "svcapi/client.h"
#include "tvhost/log.h"
#include "tvhost/state_file.h"
#include "tvsc/interrupts.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>

namespace {

// Which services are watched: those of these names, and all that match a pattern now or later.
struct Watched {
    std::set<std::string> names;
    std::vector<std::string> patterns;
};

struct Watching {
    Watched watched;
    DWORD code = ERROR_SUCCESS; // of the last look
    ViewsByName views;          // of the last one that succeeded
    std::map<std::string, std::int64_t> changedAtMs;
};

bool IsWatched(const Watched &watched, const std::string &name) {
    if (watched.names.empty() && watched.patterns.empty()) return true;
    return watched.names.contains(name) ||
           std::any_of(watched.patterns.begin(), watched.patterns.end(),
                       [&](const std::string &pattern) { return fnmatch(pattern.c_str(), name.c_str(), 0) == 0; });
}

// Returns whether there is anything to watch: a name that means nothing is told and noted as failed.
bool ReadWatched(Session &session, const std::vector<std::string> &patterns, Watched *watched) {
    std::vector<std::string> names;
    for (const std::string &pattern : patterns) {
        (IsPattern(pattern) ? watched->patterns : names).push_back(pattern);
    }
    if (names.empty()) return true;
    for (std::string &name : ResolveNames(session, names, "watch")) {
        watched->names.insert(std::move(name));
    }
    return session.results.empty();
}

DWORD Look(const Session &session, const Watched &watched, ViewsByName *views) {
    std::vector<ListedService> services;
    const DWORD rc = EnumerateAllServices(session.manager.get(), &services);
    if (rc != ERROR_SUCCESS) return rc;
    for (const ListedService &service : services) {
        if (IsWatched(watched, service.name)) views->emplace(service.name, ViewOf(session, service));
    }
    return ERROR_SUCCESS;
}

// --- lines ---

std::string ProcessText(const ProcessView &process) {
    return process.process == 0 || process.isGone ? "" : fmt::format(", process {}", process.process);
}

std::string TextOf(const ServiceView &view) { return StateText(view.service.status, view.process); }

std::string TextOf(const ServiceChange &change) {
    switch (change.kind) {
    case ChangeKind::appeared: return "-> " + TextOf(*change.after) + ProcessText(change.after->process);
    case ChangeKind::disappeared: return TextOf(*change.before) + " -> not there any more";
    default: return TextOf(*change.before) + " -> " + TextOf(*change.after) + ProcessText(change.after->process);
    }
}

void WriteLine(const std::string &line) { fmt::print("{}\n", line); }

void WriteChange(const Session &session, const ServiceChange &change, std::int64_t atMs) {
    if (session.options.json) {
        WriteLine(ChangeJson(session.options, change, Timestamp(atMs)));
    } else {
        const std::string &name = change.after ? change.after->service.name : change.before->service.name;
        WriteLine(fmt::format("{} {}", Timestamp(atMs), Printable(name + ": " + TextOf(change))));
    }
}

void WriteDaemon(const Session &session, DWORD code, std::int64_t atMs) {
    if (session.options.json) {
        WriteLine(DaemonEventJson(session.options, code, Timestamp(atMs)));
    } else {
        WriteLine(fmt::format("{} {}", Timestamp(atMs),
                              code == ERROR_SUCCESS ? "the daemon answers again"
                                                    : "the daemon does not answer: " + CodeText(code)));
    }
}

// --- the table ---

// What somebody wants to see first where not all of it fits.
int RankOf(const Watching &watching, const ServiceView &view) {
    if (watching.changedAtMs.contains(view.service.name)) return 0;
    if (HasFailed(view.service.status) || view.process.isGone) return 1;
    if (view.service.status.dwCurrentState == SERVICE_STOPPED) return 4;
    return view.service.status.dwCurrentState == SERVICE_RUNNING ? 3 : 2;
}

std::vector<const ServiceView *> ShownFirst(const Watching &watching, std::size_t most) {
    std::vector<const ServiceView *> shown;
    for (const auto &entry : watching.views) {
        shown.push_back(&entry.second);
    }
    if (shown.size() <= most) return shown;
    std::stable_sort(shown.begin(), shown.end(), [&](const ServiceView *a, const ServiceView *b) {
        const int rankOfA = RankOf(watching, *a), rankOfB = RankOf(watching, *b);
        if (rankOfA != rankOfB || rankOfA != 0) return rankOfA < rankOfB;
        return watching.changedAtMs.at(a->service.name) > watching.changedAtMs.at(b->service.name);
    });
    shown.resize(most);
    return shown;
}

std::vector<std::string> TableOf(const Watching &watching, std::size_t mostServices, std::int64_t nowMs) {
    std::vector<std::vector<std::string>> rows = {{"NAME", "STATE", "PID", "UPTIME", "CHANGED", "DISPLAY NAME", ""}};
    std::vector<RowMark> marks = {{" ", Colour::none, 0}};
    for (const ServiceView *view : ShownFirst(watching, mostServices)) {
        const ProcessView &process = view->process;
        const bool isAlive = process.process != 0 && !process.isGone;
        const auto changed = watching.changedAtMs.find(view->service.name);
        rows.push_back({view->service.name, TextOf(*view), isAlive ? std::to_string(process.process) : "-",
                        isAlive ? DurationText(process.uptimeMs) : "-",
                        changed == watching.changedAtMs.end() ? "-" : DurationText(nowMs - changed->second) + " ago",
                        view->service.displayName, RemarkOn(*view)});
        marks.push_back(MarkOf(view->service.status, process));
    }
    return TableLines(std::move(rows), marks);
}

void DrawTable(const Watching &watching, const WatchOptions &watch, std::int64_t nowMs) {
    constexpr std::size_t linesAround = 3; // above and below the services
    const std::size_t height = std::max(TerminalHeight().value_or(24), linesAround + 1);
    const std::size_t width = TerminalWidth().value_or(80);
    const std::size_t most = height - linesAround;
    std::string screen = "\x1B[H";
    for (const std::string &line : TableOf(watching, most, nowMs)) {
        screen += line + "\x1B[K\r\n";
    }
    const std::size_t hidden = watching.views.size() - std::min(watching.views.size(), most);
    std::string summary = fmt::format("{}  each {:g} s  {} service{}", Timestamp(nowMs).substr(11, 8) + " UTC",
                                      watch.intervalSec, watching.views.size(), watching.views.size() == 1 ? "" : "s");
    if (hidden != 0) summary += fmt::format(", {} of them not shown", hidden);
    const bool isLost = watching.code != ERROR_SUCCESS;
    if (isLost) summary = "the daemon does not answer: " + CodeText(watching.code);
    screen += Coloured(isLost ? Colour::red : Colour::faint, summary.substr(0, width)) + "\x1B[K\x1B[J";
    (void)std::fwrite(screen.data(), 1, screen.size(), stdout);
}

// --- looks ---

// Tells what a look has brought, by lines unless a table is drawn.
void Take(const Session &session, Watching *watching, DWORD code, ViewsByName views, bool isFirst, bool tellsLines,
          bool tellsFirst) {
    const std::int64_t nowMs = EpochMs();
    if (tellsLines && code != watching->code) WriteDaemon(session, code, nowMs);
    watching->code = code;
    if (code != ERROR_SUCCESS) return;
    for (const ServiceChange &change : ChangesBetween(watching->views, views)) {
        if (!isFirst) {
            watching->changedAtMs[change.after ? change.after->service.name : change.before->service.name] = nowMs;
        }
        if (tellsLines && (!isFirst || tellsFirst)) WriteChange(session, change, nowMs);
    }
    watching->views = std::move(views);
}

// Waits for the next look. Returns false once nobody reads what is written any more.
bool AwaitNextLook(double intervalSec) {
    if (std::fflush(stdout) != 0) return false;
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, static_cast<int>(intervalSec * 1000)) == 0;
}

} // namespace

int RunWatch(Session &session, const WatchOptions &watch) {
    Watching watching;
    if (!ReadWatched(session, watch.patterns, &watching.watched)) return Finish(session);
    EndQuietlyWhenInterrupted();
    const bool drawsTable = isatty(STDOUT_FILENO) != 0 && !session.options.json;
    if (drawsTable) fmt::print("\x1B[2J");
    for (unsigned look = 0; !watch.looks || look < *watch.looks; ++look) {
        if (look > 0 && !AwaitNextLook(watch.intervalSec)) return 128 + SIGPIPE;
        ViewsByName views;
        const DWORD code = Look(session, watching.watched, &views);
        if (IsInterrupted()) break; // what a look that ends with its connection has brought is no event
        Take(session, &watching, code, std::move(views), look == 0, !drawsTable, watch.beginsWithAll);
        if (drawsTable) DrawTable(watching, watch, EpochMs());
    }
    if (drawsTable) fmt::print("\n");
    return ExitStatusOf(watching.code);
}
