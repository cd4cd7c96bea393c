// SPDX-License-Identifier: MIT
// plan_act: the steps of start --with-deps, stop --with-dependents and restart --with-dependents.
#include "tvsc/plan_act.h"

#include "svcapi/client.h"
#include "tvsc/foresight.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/output_format.h"
#include "tvsc/report.h"
#include "tvsc/start_check.h"
#include "tvsc/table.h"
#include "tvsc/words.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

using Steps = std::vector<ActStep>;

// Once, whoever else needs it, too.
void AddStep(Steps *steps, const std::string &action, const std::string &name, const std::string &why) {
    const bool isPlanned = std::any_of(steps->begin(), steps->end(),
                                       [&](const ActStep &step) { return step.action == action && step.name == name; });
    if (!isPlanned) steps->push_back({action, name, why});
}

bool IsLocked(Session &session, const std::string &name) {
    LockStatus lock;
    if (QueryLock(session.manager.get(), &lock) != ERROR_SUCCESS || !lock.locked) return false;
    Failed(session, name, "plan", ERROR_SERVICE_DATABASE_LOCKED,
           fmt::format("locked by {} for {} s", lock.owner, lock.durationSec));
    return true;
}

constexpr DWORD planRights = SERVICE_ENUMERATE_DEPENDENTS | SERVICE_QUERY_CONFIG;

// Whether a start would be refused before anything else is asked of the service. Why was noted.
bool IsKept(Session &session, const std::string &name, const char *action, bool force) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), planRights));
    return service != nullptr && IsKeptFromStarting(session, service.get(), name, action, force);
}

// A plan shows what is disabled, as a step to be seen to.
bool IsForced(const Session &session, const ActPlanOptions &options) {
    return options.force || !session.options.dryRun;
}

bool PlanStart(Session &session, const ListedService &named, const ActPlanOptions &options, const char *action,
               bool startsNeeded, Steps *steps) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), named.name.c_str(), planRights));
    std::vector<ListedService> needed;
    const DWORD rc =
        service == nullptr ? GetLastError() : EnumerateDependencies(service.get(), SERVICE_STATE_ALL, &needed);
    if (rc != ERROR_SUCCESS) {
        Failed(session, named.name, "plan", rc, "its dependencies cannot be listed");
        return false;
    }
    const bool force = IsForced(session, options);
    if (IsKeptFromStarting(session, service.get(), named.name, action, force)) return false;
    // A lock ends by itself: a plan for later does not mind it.
    if (session.options.dryRun && IsLocked(session, named.name)) return false;
    for (auto one = needed.rbegin(); one != needed.rend(); ++one) {
        if (one->status.dwCurrentState != SERVICE_STOPPED) continue;
        if (!startsNeeded) {
            Failed(session, named.name, action, ERROR_SERVICE_DEPENDENCY_FAIL, fmt::format("{} is stopped", one->name));
            return false;
        }
        if (IsKept(session, one->name, action, force)) return false;
        AddStep(steps, "start", one->name, "needed by " + named.name);
    }
    return true;
}

bool PlanStop(Session &session, const ListedService &named, const ActPlanOptions &options, const char *action,
              Steps *steps, std::vector<std::string> *dependents) {
    if (options.force) return true; // these are left as they are
    const ServiceHandle service(OpenServiceA(session.manager.get(), named.name.c_str(), planRights));
    std::vector<ListedService> active;
    const DWORD rc = service == nullptr ? GetLastError() : EnumerateDependents(service.get(), SERVICE_ACTIVE, &active);
    if (rc != ERROR_SUCCESS) {
        if (options.all) return true;
        Failed(session, named.name, "plan", rc, "its dependents cannot be listed");
        return false;
    }
    if (!active.empty() && !options.withOthers) {
        Failed(session, named.name, action, ERROR_DEPENDENT_SERVICES_RUNNING,
               fmt::format("{} runs and depends on it; use --with-dependents or --force", active.front().name));
        return false;
    }
    for (const ListedService &one : active) {
        AddStep(steps, "stop", one.name, "needs " + named.name);
        dependents->push_back(one.name);
    }
    return true;
}

// Whether a restart would find that it could not start these again, before it stops anything. What cannot was noted.
bool IsAnyMasked(Session &session, const std::vector<std::string> &names, const char *action) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string &name) { return IsKept(session, name, action, true); });
}

void PlanOne(Session &session, PlannedAct act, const ListedService &named, const ActPlanOptions &options,
             Steps *steps) {
    const char *const action = act == PlannedAct::start ? "start" : act == PlannedAct::stop ? "stop" : "restart";
    std::vector<std::string> dependents;
    const bool isActive = named.status.dwCurrentState != SERVICE_STOPPED;
    const bool isRestart = act == PlannedAct::restart;
    if (isRestart && IsKept(session, named.name, action, IsForced(session, options))) return;
    if (act != PlannedAct::start) {
        if (!PlanStop(session, named, options, action, steps, &dependents)) return;
        if (isRestart && IsAnyMasked(session, dependents, action)) return;
        std::vector<std::string> stopped = dependents;
        if (isActive) stopped.push_back(named.name);
        const auto wouldStop = [&](const std::string &one) { return WouldStop(session, one); };
        // What a service takes may be another thing later, when a plan is carried out.
        if (session.options.dryRun && !std::all_of(stopped.begin(), stopped.end(), wouldStop)) return;
        if (isActive) AddStep(steps, "stop", named.name, "named");
    }
    if (act == PlannedAct::stop || (act == PlannedAct::start && isActive)) return;
    const bool startsNeeded = act == PlannedAct::start && options.withOthers; // a restart starts no others
    if (!PlanStart(session, named, options, action, startsNeeded, steps)) return;
    AddStep(steps, "start", named.name, "named");
    for (auto one = dependents.rbegin(); one != dependents.rend(); ++one) {
        AddStep(steps, "start", *one, "ran before");
    }
}

} // namespace

bool WouldStop(Session &session, const std::string &name) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    const DWORD refusal = service == nullptr ? GetLastError() : ForeseeStop(session.options, service.get(), name);
    if (refusal != ERROR_SUCCESS) Failed(session, name, "stop", refusal);
    return refusal == ERROR_SUCCESS;
}

int RunPlanAct(Session &session, PlannedAct act, const ActPlanOptions &options) {
    Steps steps;
    for (const ListedService &service : ResolveServices(session, options.names, "plan")) {
        PlanOne(session, act, service, options, &steps);
    }
    if (!session.results.empty()) return Finish(session);
    const std::size_t worstSec = steps.size() * longestStartSec;
    if (session.options.json) {
        PrintActPlanJson(session.options, steps, worstSec);
        return EXIT_DONE;
    }
    std::vector<std::vector<std::string>> rows = {{"#", "SERVICE", "ACTION", "WHY"}};
    for (const ActStep &step : steps) {
        rows.push_back({std::to_string(rows.size()), step.name, step.action, step.why});
    }
    if (!steps.empty()) PrintTable(rows);
    if (!ShowsLegend()) return EXIT_DONE;
    fmt::print("{} step{}{}.\n", steps.size(), steps.size() == 1 ? "" : "s",
               steps.empty() ? ": nothing is to be done" : fmt::format(", {} s at worst", worstSec));
    return EXIT_DONE;
}
