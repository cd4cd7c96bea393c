// SPDX-License-Identifier: MIT
// service_view: looking at services.
#include "tvsc/service_view.h"

#include "svcapi/client.h"
#include "svcapi/status_watch.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"

#include <fmt/format.h>

namespace {

// A refused interrogation tells something as well: the service is stopped, or in a pending state.
void Probe(Session &session, SC_HANDLE service, ServiceView *view) {
    SERVICE_STATUS answered = {};
    if (ControlService(service, SERVICE_CONTROL_INTERROGATE, &answered)) {
        view->service.status = answered;
    } else {
        Note(session, fmt::format("tvsc: {}: interrogate: {}", view->service.name, CodeText(GetLastError())));
        BOOL complete = FALSE;
        (void)tvQueryServiceStatusPassive(service, &view->service.status, &complete); // else the status is what it was
    }
    view->source = "interrogate";
}

void AskDaemon(Session &session, SC_HANDLE service, ServiceView *view) {
    if (IsAsStarted(view->service.status)) {
        Note(session, fmt::format("tvsc: {}: just started and silent so far: asking now would declare it dead",
                                  view->service.name));
    } else if (QueryServiceStatus(service, &view->service.status)) {
        view->source = "query";
    }
}

} // namespace

bool HasFailed(const SERVICE_STATUS &status) {
    return status.dwCurrentState == SERVICE_STOPPED && status.dwWin32ExitCode != 0;
}

bool IsAlive(const ServiceView &view) {
    return view.service.status.dwCurrentState != SERVICE_STOPPED && !view.process.isGone;
}

RowMark MarkOf(const SERVICE_STATUS &status, const ProcessView &process) {
    const bool utf8 = CharsetShown() == Charset::utf8;
    constexpr std::size_t stateCell = 1;
    if (HasFailed(status) || process.isGone) return {utf8 ? "✗" : "x", Colour::red, stateCell};
    switch (status.dwCurrentState) {
    case SERVICE_RUNNING: return {utf8 ? "●" : "*", Colour::green, stateCell};
    case SERVICE_STOPPED: return {utf8 ? "○" : "-", Colour::faint, stateCell};
    default: return {utf8 ? "◐" : "~", Colour::yellow, stateCell};
    }
}

std::string RemarkOn(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    if (view.process.isGone) return "the daemon does not know yet; status --fresh tells it";
    if (view.hidden) {
        const std::optional<bool> &deletePending = view.hidden->deletePending;
        if (!deletePending) return fmt::format("(record {}: not listed)", view.hidden->record);
        return *deletePending ? "marked for deletion" : fmt::format("(record {}: never listed)", view.hidden->record);
    }
    if (!view.service.complete) return "(record 0: not in the daemon's enumeration)";
    if (HasFailed(status) && status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR) {
        return fmt::format("service-specific code {}", status.dwServiceSpecificExitCode);
    }
    if (HasFailed(status)) return CodeText(status.dwWin32ExitCode);
    return StepsText(status);
}

std::optional<ServiceConfig> ReadConfigByName(Session &session, const std::string &name) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_CONFIG));
    if (service == nullptr) return std::nullopt;
    ServiceConfig config;
    const DWORD rc = QueryConfig(service.get(), &config);
    if (rc == ERROR_REGISTRY_IO_FAILED && !session.lacksRegistry) {
        Note(session, "tvsc: no configurations: the registry daemon does not answer");
        session.lacksRegistry = true;
    }
    return rc == ERROR_SUCCESS ? std::make_optional(config) : std::nullopt;
}

std::vector<std::optional<ServiceConfig>> ReadConfigs(Session &session, ConfigPart part,
                                                      const std::vector<ListedService> &services) {
    constexpr std::size_t few = 2; // asked one by one, they take less
    std::vector<std::optional<ServiceConfig>> configs(services.size());
    if (IsThisMachine(session.options) && services.size() > few) configs = ReadLocalConfigs(part, services);
    for (std::size_t i = 0; i < services.size(); ++i) {
        if (!configs[i]) configs[i] = ReadConfigByName(session, services[i].name);
    }
    return configs;
}

void LookCloser(Session &session, StatusLook look, ServiceView *view) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), view->service.name.c_str(), SERVICE_QUERY_STATUS));
    if (service == nullptr) return;
    if (view->process.isGone && SettleGone(service.get(), &view->service.status)) {
        Note(session, fmt::format("tvsc: {}: process {} is gone; the daemon knows it now", view->service.name,
                                  view->process.process));
        view->process = {};
        view->service.complete = true;
        view->source = look == StatusLook::fresh ? "query" : "interrogate";
        return;
    }
    if (look == StatusLook::fresh) {
        AskDaemon(session, service.get(), view);
    } else {
        Probe(session, service.get(), view);
    }
    view->process = LookAtProcess(session.options, view->service.name, view->service.status.dwCurrentState);
}

ServiceView ViewOf(const Session &session, const ListedService &service) {
    return {.service = service,
            .source = service.complete ? "enumeration" : "peek",
            .process = LookAtProcess(session.options, service.name, service.status.dwCurrentState),
            .hosted = std::nullopt,
            .config = std::nullopt,
            .command = {},
            .description = {}};
}

ServiceView ViewOf(const Session &session, const HiddenService &hidden) {
    ServiceView view = ViewOf(session, hidden.service);
    view.hidden = hidden;
    return view;
}

std::vector<ServiceView> ViewsOf(Session &session, const std::vector<std::string> &patterns,
                                 const std::string &action) {
    std::vector<ServiceView> views;
    for (const ListedService &service : ResolveServices(session, patterns, action)) {
        views.push_back(ViewOf(session, service));
    }
    return views;
}

std::vector<ServiceView> AllViews(Session &session, const std::string &action) {
    std::vector<ListedService> services;
    std::vector<ServiceView> views;
    if (!ListServicesFor(session, action, &services)) return views;
    for (const ListedService &service : services) {
        views.push_back(ViewOf(session, service));
    }
    return views;
}
