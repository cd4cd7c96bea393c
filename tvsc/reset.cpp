// SPDX-License-Identifier: MIT
// reset: the daemon's record, and the processes behind it.
//
// The daemon tells no process id. What surely is a service's: the process that its hint names with the moment of its
// start, and what the state file of tvhost names, with all that has come of them. A process that is another active
// service's, too, is left alone, and so is one that has told its service's end.
#include "tvsc/reset.h"

#include "svcapi/client.h"
#include "svcapi/pid_file.h"
#include "svcapi/process_stat.h"
#include "tvhost/state_file.h"
#include "tvsc/end_process.h"
#include "tvsc/names.h"
#include "tvsc/report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

namespace {

constexpr char action[] = "reset";

// One run of the command.
struct ResetRun {
    Session &session;
    const ResetOptions &reset;
    std::optional<std::vector<std::string>> active = {}; // the daemon's active services; nothing before they are needed
};

bool IsAmong(const std::vector<TreeProcess> &processes, pid_t process, std::uint64_t startTicks) {
    return std::any_of(processes.begin(), processes.end(),
                       [&](const TreeProcess &one) { return one.process == process && one.startTicks == startTicks; });
}

void Add(pid_t process, std::uint64_t startTicks, std::vector<TreeProcess> *processes) {
    if (startTicks != 0 && !IsAmong(*processes, process, startTicks)) processes->push_back({process, startTicks});
}

// The processes that a service surely has, as far as files tell; tvhost comes before what it runs.
std::vector<TreeProcess> RootsOf(const std::string &name) {
    std::vector<TreeProcess> roots;
    HostState state;
    if (uid_t owner = 0; ReadHostState(name, &state, &owner)) {
        if (IsHostAlive(state, owner)) Add(state.host, state.hostStart, &roots);
        if (IsProgramAlive(state, owner)) Add(state.program, state.programStart, &roots);
    }
    const PidHint hint = ReadPidHint(name);
    if (hint.alive && !hint.stopped) Add(hint.pid, hint.startTicks, &roots);
    return roots;
}

// All active services, those that are marked for deletion, too.
DWORD ListActive(const Session &session, std::vector<std::string> *names) {
    std::vector<ListedService> services;
    DWORD rc = EnumerateAllServices(session.manager.get(), &services);
    std::vector<HiddenService> hidden;
    if (rc == ERROR_SUCCESS) rc = EnumerateHiddenServices(session.manager.get(), HiddenLook::names, services, &hidden);
    for (const HiddenService &one : hidden) {
        services.push_back(one.service);
    }
    for (const ListedService &service : services) {
        if (service.status.dwCurrentState != SERVICE_STOPPED) names->push_back(service.name);
    }
    return rc;
}

// Asks for the active services where that has not been done: it takes a call for each record of the daemon.
DWORD FindActive(ResetRun &run) {
    if (run.active) return ERROR_SUCCESS;
    std::vector<std::string> names;
    const DWORD rc = ListActive(run.session, &names);
    if (rc == ERROR_SUCCESS) run.active = std::move(names);
    return rc;
}

// The other active service that has one of these processes; empty for none.
std::string SharedWith(ResetRun &run, const std::string &name, const std::vector<TreeProcess> &processes) {
    if (FindActive(run) != ERROR_SUCCESS) return "another one, perhaps";
    for (const std::string &other : *run.active) {
        if (other == name || other.empty()) continue;
        const std::vector<TreeProcess> roots = RootsOf(other);
        const auto isShared = [&](const TreeProcess &one) { return IsAmong(processes, one.process, one.startTicks); };
        if (std::any_of(roots.begin(), roots.end(), isShared)) return other;
    }
    return "";
}

std::string TextOf(const std::vector<TreeProcess> &processes) {
    std::vector<std::string> texts;
    texts.reserve(processes.size());
    for (const TreeProcess &one : processes) {
        texts.push_back(fmt::format("process {} ({})", one.process, NameOfProcess(one.process)));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

// What a service has left, as --kill would find it, for a person to decide about: it goes on.
std::string LeftAlone(ResetRun &run, const std::string &name) {
    if (!IsThisMachine(run.session.options)) return "";
    std::vector<TreeProcess> processes = RootsOf(name);
    (void)AddDescendants(&processes);
    if (processes.empty()) return "";
    const std::string other = SharedWith(run, name, processes);
    const std::string whose = other.empty() ? "--kill ends that" : fmt::format("that is of {}, too", other);
    return fmt::format("left alone: {}; {}", TextOf(processes), whose);
}

// Whether these may be ended; why not was noted.
bool MayEnd(ResetRun &run, const std::string &name, const std::vector<TreeProcess> &processes) {
    Session &session = run.session;
    const std::string text = TextOf(processes);
    if (const std::string other = SharedWith(run, name, processes); !other.empty()) {
        Failed(session, name, action, ERROR_SERVICE_ALREADY_RUNNING,
               fmt::format("{} is that of {}, too; nothing is ended", text, other));
        return false;
    }
    if (IsAmong(processes, getpid(), StartOfProcess(getpid()))) {
        Failed(session, name, action, ERROR_NOT_SUPPORTED, "tvsc has come of it itself; nothing is ended");
        return false;
    }
    if (session.options.dryRun || run.reset.yes) return true;
    Failed(session, name, action, ERROR_INVALID_PARAMETER, fmt::format("would end {}; -y does it", text));
    session.results.back().exitStatus = EXIT_USAGE;
    return false;
}

// Ends what is left of a service. Returns whether nothing is in the way any more; what is was noted.
//   ended  what there was, for people
bool EndProcesses(ResetRun &run, const std::string &name, std::string *ended) {
    Session &session = run.session;
    std::vector<TreeProcess> processes = RootsOf(name);
    (void)AddDescendants(&processes);
    if (processes.empty()) return true;
    if (!MayEnd(run, name, processes)) return false;
    const std::size_t found = processes.size();
    *ended = TextOf(processes);
    if (session.options.dryRun) return true;
    const std::vector<TreeProcess> left = EndTrees(&processes, session.options.waitTimeoutSec);
    run.active.reset(); // it takes a while: services may have ended with these, and others may share what is ended next
    if (processes.size() > found) *ended += fmt::format(" and {} of them since", processes.size() - found);
    if (left.empty()) return true;
    Failed(session, name, action, ERROR_ACCESS_DENIED, fmt::format("still there: {}", TextOf(left)));
    return false;
}

bool IsStopped(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return tvQueryServiceStatusPassive(service, &status, nullptr) && status.dwCurrentState == SERVICE_STOPPED;
}

// The process of a service that somebody has started while the former ones ended; 0 for none.
pid_t StartedSince(const std::string &name, const PidHint &before) {
    const PidHint hint = ReadPidHint(name);
    const bool isSame = hint.pid == before.pid && hint.startTicks == before.startTicks;
    return hint.alive && !hint.stopped && !isSame ? hint.pid : 0;
}

// What became of a service, or would become of it.
void TellReset(ResetRun &run, const std::string &name, bool wasStopped, const std::string &ended) {
    const bool isDry = run.session.options.dryRun;
    std::string text = wasStopped ? "already stopped" : isDry ? "would be stopped, 1067" : "stopped, 1067";
    if (!ended.empty()) {
        text = isDry ? fmt::format("{}; would end {}", text, ended) : fmt::format("stopped; ended {}", ended);
    } else if (const std::string left = run.reset.kill ? "" : LeftAlone(run, name); !left.empty()) {
        text += "; " + left;
    } else if (!wasStopped && !isDry) {
        text +=
            run.reset.kill ? "; no process of it is known here" : "; a process that it may still have was left alone";
    }
    Done(run.session, name, action, text);
}

void Reset(ResetRun &run, const std::string &name) {
    Session &session = run.session;
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) return Failed(session, name, action, GetLastError());
    const PidHint before = ReadPidHint(name);
    std::string ended;
    if (run.reset.kill && !EndProcesses(run, name, &ended)) return;
    const bool wasStopped = IsStopped(service.get()); // by itself, perhaps, as its process was asked to end
    const bool isDry = session.options.dryRun;
    if (const pid_t started = isDry || ended.empty() ? 0 : StartedSince(name, before); started != 0) {
        return Failed(session, name, action, ERROR_SERVICE_ALREADY_RUNNING,
                      fmt::format("ended {}; started again since, as process {}", ended, started));
    }
    const bool isStopped = wasStopped || isDry || tvDeclareServiceDead(service.get());
    if (!isStopped) return Failed(session, name, action, GetLastError());
    TellReset(run, name, wasStopped, ended);
    if (run.active) std::erase(*run.active, name); // it would not stand in the list if that were asked for again
}

} // namespace

int RunReset(Session &session, const ResetOptions &reset) {
    if (reset.kill && !IsThisMachine(session.options)) {
        Failed(session, session.options.host, action, ERROR_NOT_SUPPORTED,
               "processes of another machine are out of reach");
        return Finish(session);
    }
    ResetRun run = {.session = session, .reset = reset};
    for (const std::string &name : ResolveNames(session, reset.names, action)) {
        Reset(run, name);
    }
    return Finish(session);
}
