// SPDX-License-Identifier: MIT
// act: the commands that move services between states.
//
// The daemon starts no dependencies and stops no dependents: this program does. It looks before it asks for a start,
// because a start of a service whose announced wait has passed starts a second process, which refuses or replaces the
// first.
#include "tvsc/act.h"

#include "svcapi/client.h"
#include "svcapi/image_launcher.h"
#include "svcapi/pid_file.h"
#include "tvsc/foresight.h"
#include "tvsc/logs.h"
#include "tvsc/names.h"
#include "tvsc/plan_act.h"
#include "tvsc/report.h"
#include "tvsc/service_view.h"
#include "tvsc/start_check.h"
#include "tvsc/waiting.h"
#include "tvsc/words.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr const char *actionNames[] = {"", "stop", "pause", "continue", "interrogate"};

std::string ActionName(DWORD control) {
    const bool hasName = control >= SERVICE_CONTROL_STOP && control <= SERVICE_CONTROL_INTERROGATE;
    return hasName ? actionNames[control] : fmt::format("control {}", control);
}

// Opens a service for an action, or takes it from where the look for its name has left it; or notes why not.
ServiceHandle OpenFor(Session &session, const std::string &name, const std::string &action) {
    if (OpenServices::node_type found = session.found.extract(name)) return std::move(found.mapped());
    ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) Failed(session, name, action, GetLastError());
    return service;
}

std::string EndText(const SERVICE_STATUS &status) {
    if (status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR) {
        return fmt::format("stopped with its own code {}", status.dwServiceSpecificExitCode);
    }
    return status.dwWin32ExitCode == 0 ? "stopped again, without an error" : "stopped";
}

// Has the daemon learn that the process of an active service is gone, where that is known here, and says so. Returns
// whether the service is stopped by that; *status is its status then.
bool SettleIfGone(Session &session, SC_HANDLE service, const std::string &name, SERVICE_STATUS *status) {
    const ProcessView process = LookAtProcess(session.options, name, status->dwCurrentState);
    const std::string state = StateSummary(*status);
    if (!process.isGone || !SettleGone(service, status)) return false;
    Note(session, fmt::format("tvsc: {}: was {}, but process {} is gone: the daemon has it as stopped now (1067)", name,
                              state, process.process));
    return true;
}

// A service that was not started may stand in the daemon's record as one that starts: then nothing can be done with it
// any more. Where its process is gone that is put right, else the way out is told.
void SettleAfterFailure(Session &session, SC_HANDLE service, const std::string &name) {
    SERVICE_STATUS status = {};
    if (!tvQueryServiceStatusPassive(service, &status, nullptr) || status.dwCurrentState == SERVICE_STOPPED) return;
    if (SettleIfGone(session, service, name, &status)) return;
    Note(session, fmt::format("  {} is {} now; when its process is gone for good: tvsc reset {}", name,
                              StateSummary(status), NameArgument(name)));
}

// Waits and notes what came of it. Returns whether the wanted state was reached.
bool WaitAndTell(Session &session, SC_HANDLE service, const std::string &name, const std::string &action, DWORD wanted,
                 bool stoppedIsEnd = true) {
    SERVICE_STATUS last = {};
    switch (WaitForState(session, service, name, wanted, stoppedIsEnd, &last)) {
    case WaitEnd::reached: Done(session, name, action, StateWord(wanted)); return true;
    case WaitEnd::stopped: {
        const DWORD code = last.dwWin32ExitCode != 0 ? last.dwWin32ExitCode : ERROR_SERVICE_NOT_ACTIVE;
        Failed(session, name, action, code, EndText(last));
        if (action == "start") NoteLastLines(session, name);
        session.results.back().exitStatus = EXIT_FAILED;
        return false;
    }
    case WaitEnd::died:
        Failed(session, name, action, ERROR_PROCESS_ABORTED, fmt::format("died while {}", StateSummary(last)));
        SettleAfterFailure(session, service, name);
        if (action == "start") NoteLastLines(session, name);
        return false;
    case WaitEnd::timedOut:
        Failed(session, name, action, ERROR_TIMEOUT, fmt::format("still {}", StateSummary(last)));
        if (action == "start") SettleAfterFailure(session, service, name);
        return false;
    case WaitEnd::unreachable: Failed(session, name, action, GetLastError()); return false;
    }
    return false;
}

// What keeps the process of a service from registering, as far as it can be seen from here.
std::string LikelyCause(const Session &session, SC_HANDLE service) {
    ServiceConfig config;
    if (!IsThisMachine(session.options) || QueryConfig(service, &config) != ERROR_SUCCESS) return "is it a service?";
    if (config.imagePath.empty()) return "it has no image";
    const std::string why = WhyNoLauncher(config.imagePath);
    return why.empty() ? fmt::format("does its image {} end in exec of a service program?", config.imagePath)
                       : fmt::format("its image {}: {}", config.imagePath, why);
}

void ExplainStartFailure(Session &session, SC_HANDLE service, const std::string &name, DWORD code) {
    if (code == ERROR_SERVICE_DEPENDENCY_FAIL) {
        std::vector<ListedService> stopped;
        (void)EnumerateDependencies(service, SERVICE_INACTIVE, &stopped); // else there is less to say
        for (const ListedService &dependency : stopped) {
            Note(session, fmt::format("  {} is {}", dependency.name, StateSummary(dependency.status)));
        }
        Note(session, fmt::format("  try: tvsc start {} --with-deps", NameArgument(name)));
    } else if (code == ERROR_SERVICE_DATABASE_LOCKED) {
        LockStatus lock;
        if (QueryLock(session.manager.get(), &lock) == ERROR_SUCCESS && lock.locked) {
            Note(session, fmt::format("  locked by {} for {} s", lock.owner, lock.durationSec));
        }
    } else if (code == ERROR_SERVICE_REQUEST_TIMEOUT) {
        Note(session, "  its process did not register or did not answer; " + LikelyCause(session, service));
    } else if (code == ERROR_INVALID_HANDLE) {
        // The daemon's word for dependencies that it could not work out.
        std::vector<ListedService> all;
        const DWORD why = EnumerateDependencies(service, SERVICE_STATE_ALL, &all);
        if (why != ERROR_SUCCESS) Note(session, fmt::format("  its dependencies: {}", CodeText(why)));
        if (why == ERROR_CIRCULAR_DEPENDENCY) session.results.back().exitStatus = ExitStatusOf(why);
    } else if (code == ERROR_SERVICE_ALREADY_RUNNING && IsThisMachine(session.options)) {
        const pid_t other = FindOtherRun(name);
        if (other != 0) Note(session, fmt::format("  process {} of an earlier start still runs; end it first", other));
    } else if (code == ERROR_PATH_NOT_FOUND) {
        Note(session, "  /bin/csh could not be executed, or the daemon cannot become the service's user");
    }
}

bool StartOpened(Session &session, SC_HANDLE service, const std::string &name, const StartOptions &start) {
    std::vector<const char *> arguments;
    for (const std::string &argument : start.arguments) {
        arguments.push_back(argument.c_str());
    }
    if (!StartServiceA(service, static_cast<DWORD>(arguments.size()), arguments.data())) {
        const DWORD code = GetLastError();
        Failed(session, name, "start", code, "not started");
        ExplainStartFailure(session, service, name, code);
        SettleAfterFailure(session, service, name);
        return false;
    }
    if (start.wait) return WaitAndTell(session, service, name, "start", SERVICE_RUNNING);
    Done(session, name, "start", "starting");
    return true;
}

// A service that is neither stopped nor running: it may be on its way, or have died on it.
bool StartPending(Session &session, SC_HANDLE service, const std::string &name, const StartOptions &start,
                  SERVICE_STATUS status) {
    if (status.dwCurrentState == SERVICE_PAUSED) {
        Failed(session, name, "start", ERROR_SERVICE_ALREADY_RUNNING,
               "paused; try: tvsc continue " + NameArgument(name));
        return false;
    }
    if (!QueryServiceStatus(service, &status)) {
        Failed(session, name, "start", GetLastError());
        return false;
    }
    if (status.dwCurrentState == SERVICE_STOPPED) return StartOpened(session, service, name, start);
    if (status.dwCurrentState == SERVICE_START_PENDING && start.wait) {
        return WaitAndTell(session, service, name, "start", SERVICE_RUNNING);
    }
    Failed(session, name, "start", ERROR_SERVICE_ALREADY_RUNNING, StateSummary(status));
    return false;
}

// Opens a service and reads its status without touching it. Null, once said why, where either fails.
ServiceHandle OpenAndLook(Session &session, const std::string &name, const char *action, SERVICE_STATUS *status) {
    ServiceHandle service = OpenFor(session, name, action);
    if (service == nullptr || tvQueryServiceStatusPassive(service.get(), status, nullptr)) return service;
    Failed(session, name, action, GetLastError());
    return nullptr;
}

bool StartOne(Session &session, const std::string &name, const StartOptions &start) {
    SERVICE_STATUS status = {};
    const ServiceHandle service = OpenAndLook(session, name, "start", &status);
    if (service == nullptr) return false;
    (void)SettleIfGone(session, service.get(), name, &status); // then it is stopped
    const bool isStopped = status.dwCurrentState == SERVICE_STOPPED;
    if (isStopped && IsKeptFromStarting(session, service.get(), name, "start", start.force)) return false;
    switch (status.dwCurrentState) {
    case SERVICE_STOPPED: return StartOpened(session, service.get(), name, start);
    case SERVICE_RUNNING: Done(session, name, "start", "already running"); return true;
    default: return StartPending(session, service.get(), name, start, status);
    }
}

// Starts what the service depends on, the farthest first. Arguments are for the service itself only.
bool StartDependencies(Session &session, const std::string &name, bool force) {
    const ServiceHandle service = OpenFor(session, name, "start");
    if (service == nullptr) return false;
    std::vector<ListedService> dependencies;
    const DWORD rc = EnumerateDependencies(service.get(), SERVICE_STATE_ALL, &dependencies);
    if (rc != ERROR_SUCCESS) {
        Failed(session, name, "start", rc, "its dependencies cannot be listed");
        return false;
    }
    StartOptions waiting;
    waiting.force = force;
    return std::all_of(dependencies.rbegin(), dependencies.rend(), [&](const ListedService &dependency) {
        const bool isRunning = dependency.status.dwCurrentState == SERVICE_RUNNING &&
                               !LookAtProcess(session.options, dependency.name, SERVICE_RUNNING).isGone;
        return isRunning || StartOne(session, dependency.name, waiting);
    });
}

DWORD StateAfter(DWORD control) {
    switch (control) {
    case SERVICE_CONTROL_STOP: return SERVICE_STOPPED;
    case SERVICE_CONTROL_PAUSE: return SERVICE_PAUSED;
    case SERVICE_CONTROL_CONTINUE: return SERVICE_RUNNING;
    default: return 0;
    }
}

// What the daemon would answer to a control, as far as the service itself is not asked for it.
bool TellControl(Session &session, SC_HANDLE service, const std::string &name, DWORD control) {
    const DWORD refusal = ForeseeControl(session.options, service, name, control);
    if (refusal != ERROR_SUCCESS) {
        Failed(session, name, ActionName(control), refusal);
        return false;
    }
    Done(session, name, ActionName(control), fmt::format("would be sent control {}", control));
    return true;
}

bool SendControl(Session &session, SC_HANDLE service, const std::string &name, DWORD control, bool wait) {
    if (session.options.dryRun) return TellControl(session, service, name, control);
    const std::string action = ActionName(control);
    SERVICE_STATUS status = {};
    if (!ControlService(service, control, &status)) {
        Failed(session, name, action, GetLastError());
        return false;
    }
    const DWORD wanted = StateAfter(control);
    if (wait && wanted != 0 && status.dwCurrentState != wanted) {
        return WaitAndTell(session, service, name, action, wanted);
    }
    Done(session, name, action, StateSummary(status));
    return true;
}

bool StopOne(Session &session, const std::string &name, bool wait) {
    SERVICE_STATUS status = {};
    const ServiceHandle service = OpenAndLook(session, name, "stop", &status);
    if (service == nullptr) return false;
    if (status.dwCurrentState == SERVICE_STOPPED) {
        Done(session, name, "stop", "already stopped");
        return true;
    }
    if (SettleIfGone(session, service.get(), name, &status)) {
        Done(session, name, "stop", "stopped");
        return true;
    }
    if (status.dwCurrentState == SERVICE_STOP_PENDING) {
        if (wait) return WaitAndTell(session, service.get(), name, "stop", SERVICE_STOPPED);
        Done(session, name, "stop", "already stopping");
        return true;
    }
    return SendControl(session, service.get(), name, SERVICE_CONTROL_STOP, wait);
}

std::vector<std::string> ActiveServices(Session &session) {
    std::vector<ListedService> services;
    std::vector<std::string> names;
    (void)ListServicesFor(session, "stop", &services); // noted
    for (const ListedService &service : services) {
        if (service.status.dwCurrentState != SERVICE_STOPPED) names.push_back(service.name);
    }
    return names;
}

// Starts again what was stopped on the way, the last one first. One that fails, which is noted, keeps none from it that
// may not need it.
void StartAgain(Session &session, const std::vector<std::string> &stopped) {
    StartOptions start;
    start.force = true; // it ran before
    for (auto name = stopped.rbegin(); name != stopped.rend(); ++name) {
        (void)StartOne(session, *name, start);
    }
}

bool IsKeptFromRestarting(Session &session, const std::string &name, bool force) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_CONFIG));
    return service != nullptr && IsKeptFromStarting(session, service.get(), name, "restart", force);
}

// Whether all that a restart would stop can be started again: it would stay stopped. What cannot is noted.
bool CanRestart(Session &session, const std::string &name, const StopOptions &restart) {
    if (IsKeptFromRestarting(session, name, restart.force)) return false;
    std::vector<ListedService> dependents;
    if (!restart.withDependents || restart.force) return true;                             // these are not stopped
    (void)EnumerateDependentsOf(session.manager.get(), name, SERVICE_ACTIVE, &dependents); // told when they are stopped
    bool can = true;
    for (const ListedService &dependent : dependents) {
        if (IsKeptFromRestarting(session, dependent.name, true)) can = false; // each of them is told
    }
    return can;
}

// Looks until it holds, or the time is over.
template <typename Condition>
bool HoldsInTime(const Session &session, Condition condition) {
    constexpr auto pause = std::chrono::milliseconds(100);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(session.options.waitTimeoutSec);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

// The process that is gone counts: the daemon may never notice by itself.
void WaitForFailure(Session &session, SC_HANDLE service, const std::string &name) {
    SERVICE_STATUS status = {};
    const bool failed = HoldsInTime(session, [&] {
        if (!QueryServiceStatus(service, &status)) return true;
        return HasFailed(status) || LookAtProcess(session.options, name, status.dwCurrentState).isGone;
    });
    if (!failed) return Failed(session, name, "wait", ERROR_TIMEOUT, fmt::format("still {}", StateSummary(status)));
    Done(session, name, "wait", StateText(status, LookAtProcess(session.options, name, status.dwCurrentState)));
}

// A service that is waited for is not opened: an open handle would keep it.
void WaitForDeletion(Session &session, const std::string &name) {
    const bool isGone = HoldsInTime(session, [&] {
        std::string displayName;
        return QueryDisplayName(session.manager.get(), name.c_str(), &displayName) == ERROR_SERVICE_DOES_NOT_EXIST;
    });
    if (!isGone) return Failed(session, name, "wait", ERROR_TIMEOUT, "still there");
    Done(session, name, "wait", "deleted");
}

} // namespace

bool ClearDependents(Session &session, const std::string &name, const std::string &action, const StopOptions &stop,
                     std::vector<std::string> *stopped) {
    if (stop.force) return true;
    std::vector<ListedService> dependents;
    const DWORD rc = EnumerateDependentsOf(session.manager.get(), name, SERVICE_ACTIVE, &dependents);
    if (rc != ERROR_SUCCESS && stop.all) return true; // all go, in whatever order
    if (rc != ERROR_SUCCESS) {
        Failed(session, name, action, rc, "its dependents cannot be listed");
        return false;
    }
    if (dependents.empty()) return true;
    if (!stop.withDependents) {
        Failed(session, name, action, ERROR_DEPENDENT_SERVICES_RUNNING,
               fmt::format("{} runs and depends on it; use --with-dependents or --force", dependents.front().name));
        return false;
    }
    return std::all_of(dependents.begin(), dependents.end(), [&](const ListedService &dependent) {
        if (session.options.dryRun) return WouldStop(session, dependent.name);
        if (!StopOne(session, dependent.name, true)) return false;
        if (stopped != nullptr) stopped->push_back(dependent.name);
        return true;
    });
}

int RunStart(Session &session, const StartOptions &start) {
    if (session.options.dryRun) {
        return RunPlanAct(session, PlannedAct::start,
                          {.names = start.names, .withOthers = start.withDependencies, .force = start.force});
    }
    for (const std::string &name : ResolveNames(session, start.names, "start", &session.found)) {
        if (start.withDependencies && !StartDependencies(session, name, start.force)) continue;
        (void)StartOne(session, name, start); // noted
    }
    return Finish(session);
}

int RunStop(Session &session, const StopOptions &stop) {
    if (session.options.dryRun) {
        return RunPlanAct(session, PlannedAct::stop,
                          {.names = stop.all ? ActiveServices(session) : stop.names,
                           .withOthers = stop.withDependents || stop.all,
                           .force = stop.force,
                           .all = stop.all});
    }
    StopOptions each = stop;
    if (stop.all) {
        each.names = ActiveServices(session);
        each.withDependents = true;
    } else {
        each.names = ResolveNames(session, stop.names, "stop", &session.found);
    }
    for (const std::string &name : each.names) {
        if (ClearDependents(session, name, "stop", each)) (void)StopOne(session, name, each.wait); // noted
    }
    return Finish(session);
}

int RunRestart(Session &session, const StopOptions &restart) {
    if (session.options.dryRun) {
        return RunPlanAct(session, PlannedAct::restart,
                          {.names = restart.names, .withOthers = restart.withDependents, .force = restart.force});
    }
    for (const std::string &name : ResolveNames(session, restart.names, "restart", &session.found)) {
        std::vector<std::string> stopped; // that depend on it
        StartOptions start;
        start.force = restart.force;
        if (!CanRestart(session, name, restart)) continue;
        const bool isDown =
            ClearDependents(session, name, "restart", restart, &stopped) && StopOne(session, name, true);
        if (isDown && StartOne(session, name, start)) StartAgain(session, stopped);
    }
    return Finish(session);
}

int RunControl(Session &session, const std::vector<std::string> &names, DWORD control, bool wait) {
    for (const std::string &name : ResolveNames(session, names, ActionName(control), &session.found)) {
        const ServiceHandle service = OpenFor(session, name, ActionName(control));
        if (service != nullptr) (void)SendControl(session, service.get(), name, control, wait); // noted
    }
    return Finish(session);
}

int RunWait(Session &session, const std::vector<std::string> &names, DWORD state) {
    for (const std::string &name : ResolveNames(session, names, "wait")) {
        if (state == waitForDeletion) {
            WaitForDeletion(session, name);
            continue;
        }
        const ServiceHandle service = OpenFor(session, name, "wait");
        if (service == nullptr) continue;
        if (state == waitForFailure) {
            WaitForFailure(session, service.get(), name);
        } else {
            (void)WaitAndTell(session, service.get(), name, "wait", state, false); // noted
        }
    }
    return Finish(session);
}
