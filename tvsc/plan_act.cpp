// SPDX-License-Identifier: MIT
// plan_act: the steps of start --with-deps, stop --with-dependents and restart --with-dependents.
#include "tvsc/plan_act.h"

#include "svcapi/client.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/table.h"
#include "tvsc/words.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

struct Plan {
    std::vector<ActStep> steps;

    void Add(const std::string &action, const std::string &name, const std::string &why) {
        const bool isPlanned = std::any_of(steps.begin(), steps.end(), [&](const ActStep &step) {
            return step.action == action && step.name == name;
        });
        if (!isPlanned) steps.push_back({action, name, why});
    }
};

bool PlanStart(Session &session, const ListedService &named, Plan *plan) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), named.name.c_str(), SERVICE_ENUMERATE_DEPENDENTS));
    std::vector<ListedService> needed;
    const DWORD rc =
        service == nullptr ? GetLastError() : EnumerateDependencies(service.get(), SERVICE_STATE_ALL, &needed);
    if (rc != ERROR_SUCCESS) {
        Failed(session, named.name, "plan", rc, "its dependencies cannot be listed");
        return false;
    }
    for (auto one = needed.rbegin(); one != needed.rend(); ++one) {
        if (one->status.dwCurrentState == SERVICE_STOPPED) plan->Add("start", one->name, "needed by " + named.name);
    }
    return true;
}

bool PlanStop(Session &session, const ListedService &named, Plan *plan, std::vector<std::string> *dependents) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), named.name.c_str(), SERVICE_ENUMERATE_DEPENDENTS));
    std::vector<ListedService> active;
    const DWORD rc = service == nullptr ? GetLastError() : EnumerateDependents(service.get(), SERVICE_ACTIVE, &active);
    if (rc != ERROR_SUCCESS) {
        Failed(session, named.name, "plan", rc, "its dependents cannot be listed");
        return false;
    }
    for (const ListedService &one : active) {
        plan->Add("stop", one.name, "needs " + named.name);
        dependents->push_back(one.name);
    }
    return true;
}

void PlanOne(Session &session, PlannedAct act, const ListedService &named, Plan *plan) {
    std::vector<std::string> dependents;
    const bool isActive = named.status.dwCurrentState != SERVICE_STOPPED;
    if (act != PlannedAct::start) {
        if (!PlanStop(session, named, plan, &dependents)) return;
        if (isActive) plan->Add("stop", named.name, "named");
    }
    if (act == PlannedAct::stop || (act == PlannedAct::start && isActive)) return;
    if (!PlanStart(session, named, plan)) return;
    plan->Add("start", named.name, "named");
    for (auto one = dependents.rbegin(); one != dependents.rend(); ++one) {
        plan->Add("start", *one, "ran before");
    }
}

} // namespace

int RunPlanAct(Session &session, PlannedAct act, const std::vector<std::string> &names) {
    Plan plan;
    for (const ListedService &service : ResolveServices(session, names, "plan")) {
        PlanOne(session, act, service, &plan);
    }
    if (!session.results.empty()) return Finish(session);
    const std::size_t worstSec = plan.steps.size() * longestStartSec;
    if (session.options.json) {
        PrintActPlanJson(session.options, plan.steps, worstSec);
        return EXIT_DONE;
    }
    std::vector<std::vector<std::string>> rows = {{"#", "SERVICE", "ACTION", "WHY"}};
    for (const ActStep &step : plan.steps) {
        rows.push_back({std::to_string(rows.size()), step.name, step.action, step.why});
    }
    if (!plan.steps.empty()) PrintTable(rows);
    fmt::print("{} step{}{}.\n", plan.steps.size(), plan.steps.size() == 1 ? "" : "s",
               plan.steps.empty() ? ": nothing is to be done" : fmt::format(", {} s at worst", worstSec));
    return EXIT_DONE;
}
