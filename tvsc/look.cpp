// SPDX-License-Identifier: MIT
// look: the commands that look at services one by one, and at what they depend on.
#include "tvsc/look.h"

#include "svcapi/client.h"
#include "tvsc/account_mask.h"
#include "tvsc/hosted_settings.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/service_properties.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>

namespace {

std::string AcceptedControls(DWORD mask) {
    std::vector<std::string> words;
    if ((mask & SERVICE_ACCEPT_STOP) != 0) words.emplace_back("stop");
    if ((mask & SERVICE_ACCEPT_PAUSE_CONTINUE) != 0) words.emplace_back("pause, continue");
    if ((mask & SERVICE_ACCEPT_SHUTDOWN) != 0) words.emplace_back("shutdown");
    return words.empty() ? "none" : fmt::format("{}", fmt::join(words, ", "));
}

void PrintStatusBlock(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    const RowMark mark = MarkOf(status, view.process);
    fmt::print("{} {}\n", Coloured(mark.colour, mark.mark),
               Printable(view.service.name + " - " + view.service.displayName));
    fmt::print("    state: {}\n", Coloured(mark.colour, StateText(status, view.process)));
    fmt::print(" controls: {}\n", AcceptedControls(status.dwControlsAccepted));
    if (!RemarkOn(view).empty()) fmt::print("   remark: {}\n", RemarkOn(view));
    const bool knowsProgram = view.hosted && view.hosted->programLives;
    if (view.process.process != 0 && !view.process.isGone && !knowsProgram) {
        fmt::print("  process: {}, for {} (hint)\n", view.process.process, DurationText(view.process.uptimeMs));
    }
    if (view.hosted) {
        for (const std::string &line : HostedLines(*view.hosted, HasFailed(status))) {
            fmt::print("{}\n", line);
        }
    }
    if (view.source != "enumeration") fmt::print("   source: {}\n", view.source);
}

std::string DependenciesText(const ServiceConfig &config) {
    return fmt::format("{}", fmt::join(config.dependencies, ", "));
}

void PrintConfig(const ServiceConfig &config, const std::string &command, const std::string &description) {
    if (!description.empty()) fmt::print("    about: {}\n", Printable(description));
    fmt::print("     type: {}\n", ServiceTypeText(config.type));
    fmt::print("    start: {}{}\n", StartWord(config.startType),
               IsMasked(config.account) ? "; masked, nobody can start it" : "");
    fmt::print("    error: {}\n", ErrorControlWord(config.errorControl));
    if (!command.empty()) fmt::print("  command: {}\n", Printable(command));
    fmt::print("    image: {}\n", Printable(config.imagePath));
    fmt::print("    group: {}\n", Printable(config.group));
    fmt::print("      tag: {}\n", config.tag);
    fmt::print("  depends: {}\n", Printable(DependenciesText(config)));
    fmt::print("  account: {}\n", Printable(WithoutMask(config.account)));
}

std::string DescriptionOf(Session &session, const std::string &name) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_QUERY_CONFIG));
    DWORD needed = 0;
    if (service == nullptr) return "";
    (void)QueryServiceConfig2A(service.get(), SERVICE_CONFIG_DESCRIPTION, nullptr, 0, &needed); // tells the size
    std::vector<BYTE> part(needed);
    const bool isRead =
        needed != 0 && QueryServiceConfig2A(service.get(), SERVICE_CONFIG_DESCRIPTION, part.data(), needed, &needed);
    const char *text = isRead ? reinterpret_cast<const SERVICE_DESCRIPTIONA *>(part.data())->lpDescription : nullptr;
    return text != nullptr ? text : "";
}

void AddWholeConfig(Session &session, ServiceView *view) {
    view->config = ReadConfigByName(session, view->service.name);
    if (!view->config) return;
    view->description = DescriptionOf(session, view->service.name);
    if (IsThisMachine(session.options)) view->command = CommandOf(view->service.name, view->config->imagePath);
}

// Several values are a line each, whatever is in them; a single one is for a program that takes it as it is.
void PrintProperties(Session &session, const ServiceView &view, const std::vector<std::string> &properties) {
    const bool isRaw = properties.size() == 1 && isatty(STDOUT_FILENO) == 0;
    if (!view.config && std::any_of(properties.begin(), properties.end(), IsConfigured)) {
        Failed(session, view.service.name, "show", ERROR_REGISTRY_IO_FAILED, "its configuration cannot be read");
        return; // an empty line would pass for an empty value
    }
    for (const std::string &property : properties) {
        const std::string value = PropertyOf(view, property);
        fmt::print("{}\n", isRaw ? value : Printable(value));
    }
}

int StatusExitOf(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    if (HasFailed(status) || view.process.isGone) return STATUS_DEAD;
    const bool down = status.dwCurrentState == SERVICE_STOPPED || status.dwCurrentState == SERVICE_STOP_PENDING;
    return down ? STATUS_STOPPED : STATUS_RUNNING;
}

int WorstStatus(const Session &session, const std::vector<ServiceView> &views) {
    if (!session.results.empty()) return STATUS_UNKNOWN;
    int worst = STATUS_RUNNING;
    for (const ServiceView &view : views) {
        const int exitStatus = StatusExitOf(view);
        if (worst == STATUS_RUNNING) worst = exitStatus;
    }
    return worst;
}

} // namespace

int RunStatus(Session &session, const std::vector<std::string> &names, StatusLook look) {
    std::vector<ServiceView> views = ViewsOf(session, names, "status");
    for (ServiceView &view : views) {
        if (IsThisMachine(session.options)) view.hosted = ReadHosted(view.service.name);
        if (look != StatusLook::passive) LookCloser(session, look, &view);
        if (!session.options.json) PrintStatusBlock(view);
    }
    if (session.options.json) PrintServicesJson(session, views);
    return WorstStatus(session, views);
}

int RunIsActive(Session &session, const std::vector<std::string> &names) {
    const std::vector<ServiceView> views = ViewsOf(session, names, "is-active");
    if (session.options.json) PrintServicesJson(session, views);
    return WorstStatus(session, views);
}

int RunIsHealthy(Session &session, const std::vector<std::string> &names) {
    std::vector<ServiceView> views =
        names.empty() ? AllViews(session, "is-healthy") : ViewsOf(session, names, "is-healthy");
    bool isHealthy = session.results.empty();
    for (ServiceView &view : views) {
        if (view.service.status.dwCurrentState == SERVICE_RUNNING && !view.process.isGone) continue;
        // Only where it matters: whether it should run at all is the registry's to say.
        if (names.empty()) view.config = ReadConfigByName(session, view.service.name);
        const bool shouldRun = !names.empty() || (view.config && view.config->startType <= SERVICE_AUTO_START &&
                                                  !IsMasked(view.config->account)); // these nobody starts
        if (!shouldRun && !view.process.isGone) continue;
        isHealthy = false;
        Note(session, fmt::format("{}: {}", view.service.name, StateText(view.service.status, view.process)));
    }
    if (session.options.json) PrintServicesJson(session, views);
    if (!session.results.empty()) return STATUS_UNKNOWN;
    return isHealthy && !session.lacksRegistry ? EXIT_DONE : EXIT_FAILED;
}

int RunIsFailed(Session &session, const std::vector<std::string> &names) {
    const std::vector<ServiceView> views = ViewsOf(session, names, "is-failed");
    if (session.options.json) PrintServicesJson(session, views);
    if (!session.results.empty()) return STATUS_UNKNOWN;
    const bool failed = std::any_of(views.begin(), views.end(), [](const ServiceView &view) {
        return HasFailed(view.service.status) || view.process.isGone;
    });
    return failed ? EXIT_DONE : EXIT_FAILED;
}

int RunShow(Session &session, const std::vector<std::string> &names, const std::vector<std::string> &properties) {
    std::vector<ServiceView> views = ViewsOf(session, names, "show");
    const bool needsConfig =
        properties.empty() || session.options.json || std::any_of(properties.begin(), properties.end(), IsConfigured);
    for (ServiceView &view : views) {
        if (needsConfig) AddWholeConfig(session, &view);
        if (session.options.json) continue;
        if (!properties.empty()) {
            PrintProperties(session, view, properties);
            continue;
        }
        PrintStatusBlock(view);
        if (view.config) PrintConfig(*view.config, view.command, view.description);
    }
    if (session.options.json) {
        PrintServicesJson(session, views);
        return session.results.empty() ? EXIT_DONE : session.results.front().exitStatus;
    }
    return Finish(session);
}

int RunDeps(Session &session, const std::string &name, bool dependents) {
    const std::string action = dependents ? "dependents" : "deps";
    const std::string relation = dependents ? "dependents" : "dependencies";
    const std::vector<std::string> resolved = ResolveNames(session, {name}, action);
    for (const std::string &one : resolved) {
        const ServiceHandle service(OpenServiceA(session.manager.get(), one.c_str(), SERVICE_ENUMERATE_DEPENDENTS));
        std::vector<ListedService> found;
        DWORD rc = service != nullptr ? ERROR_SUCCESS : GetLastError();
        if (rc == ERROR_SUCCESS) {
            rc = dependents ? EnumerateDependents(service.get(), SERVICE_STATE_ALL, &found)
                            : EnumerateDependencies(service.get(), SERVICE_STATE_ALL, &found);
        }
        if (rc != ERROR_SUCCESS) {
            Failed(session, one, action, rc);
        } else if (session.options.json) {
            PrintRelationJson(session, one, relation, found);
        } else {
            for (const ListedService &related : found) {
                const ProcessView process = LookAtProcess(session.options, related.name, related.status.dwCurrentState);
                const RowMark mark = MarkOf(related.status, process);
                fmt::print("{} {}  {}\n", Coloured(mark.colour, mark.mark), Printable(related.name),
                           StateText(related.status, process));
            }
        }
    }
    return session.results.empty() ? EXIT_DONE : Finish(session);
}

int RunName(Session &session, const std::string &name) {
    std::string key = name;
    std::string display;
    DWORD rc = QueryDisplayName(session.manager.get(), name.c_str(), &display);
    if (rc == ERROR_SERVICE_DOES_NOT_EXIST) {
        display = name;
        rc = QueryKeyName(session.manager.get(), name.c_str(), &key);
    }
    if (rc != ERROR_SUCCESS) {
        Failed(session, name, "name", rc);
        return Finish(session);
    }
    if (session.options.json) {
        PrintNamesJson(session, key, display);
    } else {
        fmt::print("{}\t{}\n", Printable(key), Printable(display));
    }
    return EXIT_DONE;
}
