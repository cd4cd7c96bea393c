// SPDX-License-Identifier: MIT
// reset: the daemon's record, and the processes behind it.
//
// The daemon tells no process id. What surely is a service's: the process that its hint names with the moment of its
// start, and what the state file of tvhost names, with all that has come of it. A process that is another active
// service's, too, is left alone, and so is one that has told its service's end.
#include "tvsc/reset.h"

#include "svcapi/client.h"
#include "svcapi/pid_file.h"
#include "tvsc/end_process.h"
#include "tvsc/hosted.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace {

constexpr char action[] = "reset";

void Add(const TreeProcess &process, std::vector<TreeProcess> *processes) {
    const auto isSame = [&](const TreeProcess &one) { return one.process == process.process; };
    if (process.startTicks != 0 && std::none_of(processes->begin(), processes->end(), isSame)) {
        processes->push_back(process);
    }
}

void AddTree(const TreeProcess &root, std::vector<TreeProcess> *processes) {
    Add(root, processes);
    for (const TreeProcess &one : DescendantsOf(root.process)) {
        if (!one.hasEnded) Add(one, processes);
    }
}

// What is left of a service; tvhost comes before what it runs, which it ends itself.
std::vector<TreeProcess> ProcessesOf(const std::string &name) {
    std::vector<TreeProcess> processes;
    if (const std::optional<HostedView> hosted = ReadHosted(name)) {
        const HostState &state = hosted->state;
        if (hosted->hostLives) AddTree({state.host, state.hostStart, false}, &processes);
        if (hosted->programLives) AddTree({state.program, state.programStart, false}, &processes);
    }
    const PidHint hint = ReadPidHint(name);
    if (hint.alive && !hint.stopped) Add({hint.pid, hint.startTicks, false}, &processes);
    return processes;
}

// The other active service that has one of these processes; empty for none.
std::string SharedWith(const Session &session, const std::string &name, const std::vector<TreeProcess> &processes) {
    std::vector<ListedService> services;
    if (EnumerateAllServices(session.manager.get(), &services) != ERROR_SUCCESS) return "another one, perhaps";
    for (const ListedService &service : services) {
        if (service.name == name || service.status.dwCurrentState == SERVICE_STOPPED) continue;
        const pid_t other = ReadPidHint(service.name).pid;
        const auto isIts = [&](const TreeProcess &one) { return one.process == other; };
        if (std::any_of(processes.begin(), processes.end(), isIts)) return service.name;
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

// At a terminal a person says so; elsewhere --kill has said it.
bool MayEnd(const ResetOptions &reset, const std::string &name, const std::string &what) {
    if (reset.yes || isatty(STDIN_FILENO) == 0) return true;
    fmt::print(stderr, "{}? [y/N] ", Printable(fmt::format("{}: end {}", name, what)));
    std::string answer;
    return std::getline(std::cin, answer) && (answer == "y" || answer == "yes");
}

// Ends what is left of a service. Returns whether nothing is in the way any more; what is was noted.
//   ended  what there was, for people
bool EndProcesses(Session &session, const std::string &name, const ResetOptions &reset, std::string *ended) {
    const std::vector<TreeProcess> processes = ProcessesOf(name);
    if (processes.empty()) return true;
    *ended = TextOf(processes);
    if (const std::string other = SharedWith(session, name, processes); !other.empty()) {
        Failed(session, name, action, ERROR_SERVICE_ALREADY_RUNNING,
               fmt::format("{} is that of {}, too; nothing is ended", *ended, other));
        return false;
    }
    if (session.options.dryRun) return true;
    if (!MayEnd(reset, name, *ended)) {
        Done(session, name, action, "left as it is");
        session.results.back().exitStatus = EXIT_FAILED; // nothing is wrong but that it was not done
        return false;
    }
    for (const TreeProcess &process : processes) {
        if (EndProcess(process, session.options.waitTimeoutSec)) continue;
        Failed(session, name, action, ERROR_ACCESS_DENIED, fmt::format("process {} is still there", process.process));
        return false;
    }
    return true;
}

bool IsStopped(SC_HANDLE service) {
    SERVICE_STATUS status = {};
    return tvQueryServiceStatusPassive(service, &status, nullptr) && status.dwCurrentState == SERVICE_STOPPED;
}

void Reset(Session &session, const std::string &name, const ResetOptions &reset) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) return Failed(session, name, action, GetLastError());
    std::string ended;
    if (reset.kill && !EndProcesses(session, name, reset, &ended)) return;
    const bool wasStopped = IsStopped(service.get()); // by itself, perhaps, as its process was asked to end
    if (session.options.dryRun) {
        const std::string state = wasStopped ? "already stopped" : "would be stopped, 1067";
        return Done(session, name, action, state + (ended.empty() ? "" : "; would end " + ended));
    }
    if (!wasStopped && !tvDeclareServiceDead(service.get())) return Failed(session, name, action, GetLastError());
    const char *const untouched =
        reset.kill ? "; no process of it is known here" : "; a process that it may still have was left alone";
    if (!ended.empty()) return Done(session, name, action, fmt::format("stopped; ended {}", ended));
    Done(session, name, action, wasStopped ? "already stopped" : fmt::format("stopped, 1067{}", untouched));
}

} // namespace

int RunReset(Session &session, const ResetOptions &reset) {
    if (reset.kill && !IsThisMachine(session.options)) {
        Failed(session, session.options.host, action, ERROR_NOT_SUPPORTED,
               "processes of another machine are out of reach");
        return Finish(session);
    }
    for (const std::string &name : ResolveNames(session, reset.names, action)) {
        Reset(session, name, reset);
    }
    return Finish(session);
}
