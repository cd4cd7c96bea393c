// SPDX-License-Identifier: MIT
// list: all services, or those that are asked for, in columns.
#include "svcapi/client.h"
#include "tvsc/account_mask.h"
#include "tvsc/json_output.h"
#include "tvsc/look.h"
#include "tvsc/names.h"
#include "tvsc/output_format.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <set>

namespace {

bool PassesStateFilter(const ServiceView &view, const ListFilter &filter) {
    const SERVICE_STATUS &status = view.service.status;
    return filter.states.empty() ||
           std::any_of(filter.states.begin(), filter.states.end(), [&](const std::string &state) {
               return state == "failed" ? HasFailed(status) || view.process.isGone
                                        : state == StateWord(status.dwCurrentState, true);
           });
}

void PrintSummary(const std::vector<ServiceView> &views) {
    std::size_t running = 0, stopped = 0, failed = 0, gone = 0;
    for (const ServiceView &view : views) {
        const SERVICE_STATUS &status = view.service.status;
        gone += view.process.isGone ? 1u : 0u;
        running += status.dwCurrentState == SERVICE_RUNNING && !view.process.isGone ? 1u : 0u;
        failed += HasFailed(status) ? 1u : 0u;
        stopped += status.dwCurrentState == SERVICE_STOPPED && !HasFailed(status) ? 1u : 0u;
    }
    fmt::print("{} service{}: {} running, {} stopped, {} failed, {} other.{}\n", views.size(),
               views.size() == 1 ? "" : "s", running, stopped, failed, views.size() - running - stopped - failed,
               gone == 0 ? "" : fmt::format(" {} without {} process.", gone, gone == 1 ? "its" : "their"));
}

// Bytes as they are for a program that reads them; a terminal would act on them.
void PrintNames(const std::vector<ServiceView> &views) {
    const bool isRead = isatty(STDOUT_FILENO) == 0;
    for (const ServiceView &view : views) {
        if (view.service.name.empty()) continue; // one that is hidden behind another one's display name
        fmt::print("{}\n", isRead ? view.service.name : Printable(view.service.name));
    }
}

std::string NameShown(const ServiceView &view) {
    return view.service.name.empty() && view.hidden ? "-" : view.service.name;
}

// A masked service is not started, whatever its start type is.
std::string StartCell(const ServiceView &view) {
    if (!view.config) return "-";
    return IsMasked(view.config->account) ? "masked" : StartWord(view.config->startType);
}

void PrintColumns(const std::vector<ServiceView> &views) {
    std::vector<std::vector<std::string>> rows = {
        {"NAME", "STATE", "START", "PID", "UPTIME", "GROUP", "DISPLAY NAME", ""}};
    std::vector<RowMark> marks = {{" ", Colour::none, 0}};
    for (const ServiceView &view : views) {
        const ProcessView &process = view.process;
        const bool isAlive = process.process != 0 && !process.isGone;
        rows.push_back({NameShown(view), StateText(view.service.status, process), StartCell(view),
                        isAlive ? std::to_string(process.process) : "-", isAlive ? DurationText(process.uptimeMs) : "-",
                        view.config && !view.config->group.empty() ? view.config->group : "-", view.service.displayName,
                        RemarkOn(view)});
        marks.push_back(MarkOf(view.service.status, process));
    }
    PrintTable(rows, marks);
    if (ShowsLegend()) PrintSummary(views);
}

// Every service, with those that are hidden where these are wanted. Where that fails it is told and noted.
bool EveryView(Session &session, const ListFilter &filter, std::vector<ServiceView> *views) {
    std::vector<ListedService> services;
    if (!ListServicesFor(session, "list", &services)) return false;
    for (const ListedService &service : services) {
        views->push_back(ViewOf(session, service));
    }
    std::vector<HiddenService> hidden;
    DWORD rc = ERROR_SUCCESS;
    if (filter.all) rc = EnumerateHiddenServices(session.manager.get(), HiddenLook::marks, services, &hidden);
    for (const HiddenService &service : hidden) {
        views->push_back(ViewOf(session, service));
    }
    if (rc != ERROR_SUCCESS) Failed(session, session.options.host, "list", rc, "the services cannot be listed");
    return rc == ERROR_SUCCESS;
}

// Those that patterns mean.
std::vector<ServiceView> ViewsMeant(Session &session, const ListFilter &filter, std::vector<ServiceView> every) {
    std::vector<ListedService> services;
    services.reserve(every.size());
    for (const ServiceView &view : every) {
        services.push_back(view.service);
    }
    std::vector<ServiceView> views;
    for (const ListedService *service : ResolveAmong(session, filter.patterns, "list", services)) {
        views.push_back(every[static_cast<std::size_t>(service - services.data())]);
    }
    return views;
}

// Leaves those of other types out. The daemon knows them by their configurations: the type in a status is 0 until the
// service has reported one.
void FilterByType(Session &session, DWORD type, std::vector<ServiceView> *views) {
    std::vector<ListedService> services;
    const DWORD rc = EnumerateServices(session.manager.get(), type, SERVICE_STATE_ALL, &services);
    if (rc != ERROR_SUCCESS) Failed(session, session.options.host, "list", rc, "the services cannot be listed");
    std::set<std::string> names;
    for (const ListedService &service : services) {
        names.insert(service.name);
    }
    std::erase_if(*views, [&](const ServiceView &view) {
        const bool isOfType =
            view.hidden ? (view.service.status.dwServiceType & type) != 0 : names.contains(view.service.name);
        return !isOfType;
    });
}

// Whether a service can be opened by its name. The key of one without a name would be that of all services.
bool IsOpenable(const ServiceView &view) {
    return !view.hidden || (!view.hidden->deletePending.value_or(true) && !view.service.name.empty());
}

// The configurations of all of them, as far as they can be read.
void AddConfigs(Session &session, ConfigPart part, std::vector<ServiceView> *views) {
    std::vector<ServiceView *> openable;
    std::vector<ListedService> services;
    for (ServiceView &view : *views) {
        if (!IsOpenable(view)) continue;
        openable.push_back(&view);
        services.push_back(view.service);
    }
    std::vector<std::optional<ServiceConfig>> configs = ReadConfigs(session, part, services);
    for (std::size_t i = 0; i < openable.size(); ++i) {
        openable[i]->config = std::move(configs[i]);
    }
}

} // namespace

int RunList(Session &session, const ListFilter &filter) {
    std::vector<ServiceView> views;
    if (filter.patterns.empty() || filter.all) {
        if (!EveryView(session, filter, &views)) return Finish(session);
        if (!filter.patterns.empty()) views = ViewsMeant(session, filter, std::move(views));
    } else {
        views = ViewsOf(session, filter.patterns, "list");
    }
    std::erase_if(views, [&](const ServiceView &view) { return !PassesStateFilter(view, filter); });
    if (filter.type != (SERVICE_WIN32 | SERVICE_DRIVER)) FilterByType(session, filter.type, &views);
    const bool showsConfig = !filter.brief && !filter.namesOnly;
    if (showsConfig || !filter.group.empty()) {
        AddConfigs(session, session.options.json ? ConfigPart::all : ConfigPart::accountStartAndGroup, &views);
    }
    if (!filter.group.empty()) {
        std::erase_if(views,
                      [&](const ServiceView &view) { return !view.config || view.config->group != filter.group; });
    }
    if (session.options.json) {
        PrintServicesJson(session, views);
    } else if (filter.namesOnly) {
        PrintNames(views);
    } else {
        PrintColumns(views);
    }
    return session.results.empty() ? EXIT_DONE : session.results.front().exitStatus;
}
