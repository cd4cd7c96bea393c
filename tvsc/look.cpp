// SPDX-License-Identifier: MIT
// look: the commands that only look.
//
// Enumeration and the peek control touch nothing; a status query applies the daemon's deadline, an interrogation calls
// the service. Only the first two are used unless the user asks for more.
#include "tvsc/look.h"

#include "svcapi/pid_file.h"
#include "svcapi/status_watch.h"
#include "tvsc/json_output.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/table.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>

namespace {

bool HasFailed(const SERVICE_STATUS &status) {
    return status.dwCurrentState == SERVICE_STOPPED && status.dwWin32ExitCode != 0;
}

// A mark before each line of a listing, where the terminal can show it.
const char *MarkOf(const SERVICE_STATUS &status) {
    const bool utf8 = CharsetShown() == Charset::utf8;
    if (HasFailed(status)) return utf8 ? "✗" : "x";
    switch (status.dwCurrentState) {
    case SERVICE_RUNNING: return utf8 ? "●" : "*";
    case SERVICE_STOPPED: return utf8 ? "○" : "-";
    default: return utf8 ? "◐" : "~";
    }
}

std::string RemarkOn(const ListedService &service) {
    const SERVICE_STATUS &status = service.status;
    if (!service.complete) return "(record 0: not in the daemon's enumeration)";
    if (HasFailed(status) && status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR) {
        return fmt::format("service-specific code {}", status.dwServiceSpecificExitCode);
    }
    if (HasFailed(status)) return CodeText(status.dwWin32ExitCode);
    if (status.dwWaitHint != 0 || status.dwCheckPoint != 0) {
        return fmt::format("(check point {}, hint {} ms)", status.dwCheckPoint, status.dwWaitHint);
    }
    return "";
}

bool PassesFilter(const ListedService &service, const ListFilter &filter) {
    const bool stateFits =
        filter.states.empty() || std::any_of(filter.states.begin(), filter.states.end(), [&](const std::string &state) {
            return state == "failed" ? HasFailed(service.status)
                                     : state == StateWord(service.status.dwCurrentState, true);
        });
    const bool nameFits = filter.patterns.empty() ||
                          std::any_of(filter.patterns.begin(), filter.patterns.end(), [&](const std::string &pattern) {
                              return fnmatch(pattern.c_str(), service.name.c_str(), 0) == 0;
                          });
    return stateFits && nameFits;
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

void PrintSummary(const std::vector<ServiceView> &views) {
    std::size_t running = 0, stopped = 0, failed = 0;
    for (const ServiceView &view : views) {
        const SERVICE_STATUS &status = view.service.status;
        running += status.dwCurrentState == SERVICE_RUNNING ? 1u : 0u;
        failed += HasFailed(status) ? 1u : 0u;
        stopped += status.dwCurrentState == SERVICE_STOPPED && !HasFailed(status) ? 1u : 0u;
    }
    fmt::print("{} service{}: {} running, {} stopped, {} failed, {} other.\n", views.size(),
               views.size() == 1 ? "" : "s", running, stopped, failed, views.size() - running - stopped - failed);
}

void PrintList(const std::vector<ServiceView> &views, const ListFilter &filter) {
    std::vector<std::vector<std::string>> rows = {{"NAME", "STATE", "START", "GROUP", "DISPLAY NAME", ""}};
    std::vector<std::string> marks = {" "};
    for (const ServiceView &view : views) {
        const std::string start = view.config ? StartWord(view.config->startType) : "-";
        const std::string group = view.config && !view.config->group.empty() ? view.config->group : "-";
        rows.push_back({view.service.name, StateSummary(view.service.status), start, group, view.service.displayName,
                        RemarkOn(view.service)});
        marks.emplace_back(MarkOf(view.service.status));
    }
    if (filter.namesOnly) {
        // Bytes as they are for a program that reads them; a terminal would act on them.
        const bool isRead = isatty(STDOUT_FILENO) == 0;
        for (const ServiceView &view : views) {
            fmt::print("{}\n", isRead ? view.service.name : Printable(view.service.name));
        }
        return;
    }
    PrintTable(rows, marks);
    PrintSummary(views);
}

std::string AcceptedControls(DWORD mask) {
    std::vector<std::string> words;
    if ((mask & SERVICE_ACCEPT_STOP) != 0) words.emplace_back("stop");
    if ((mask & SERVICE_ACCEPT_PAUSE_CONTINUE) != 0) words.emplace_back("pause, continue");
    if ((mask & SERVICE_ACCEPT_SHUTDOWN) != 0) words.emplace_back("shutdown");
    return words.empty() ? "none" : fmt::format("{}", fmt::join(words, ", "));
}

void PrintStatusBlock(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    fmt::print("{} {}\n", MarkOf(status), Printable(view.service.name + " - " + view.service.displayName));
    fmt::print("    state: {}\n", StateSummary(status));
    fmt::print(" controls: {}\n", AcceptedControls(status.dwControlsAccepted));
    if (!RemarkOn(view.service).empty()) fmt::print("   remark: {}\n", RemarkOn(view.service));
    const bool knowsProgram = view.hosted && view.hosted->programLives;
    if (view.pidHint != 0 && !knowsProgram) fmt::print("  process: {} (hint)\n", view.pidHint);
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

void PrintConfig(const ServiceConfig &config) {
    fmt::print("     type: {:#x}\n", config.type);
    fmt::print("    start: {}\n", StartWord(config.startType));
    fmt::print("    error: {}\n", config.errorControl);
    fmt::print("    image: {}\n", Printable(config.imagePath));
    fmt::print("    group: {}\n", Printable(config.group));
    fmt::print("      tag: {}\n", config.tag);
    fmt::print("  depends: {}\n", Printable(DependenciesText(config)));
    fmt::print("  account: {}\n", Printable(config.account));
}

int StatusExitOf(const SERVICE_STATUS &status) {
    if (HasFailed(status)) return STATUS_DEAD;
    const bool down = status.dwCurrentState == SERVICE_STOPPED || status.dwCurrentState == SERVICE_STOP_PENDING;
    return down ? STATUS_STOPPED : STATUS_RUNNING;
}

// Looks harder at one service, as asked. A refused interrogation tells something as well: the service is stopped, or
// its process is gone, or it is in a pending state.
void LookCloser(Session &session, StatusLook look, ServiceView *view) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), view->service.name.c_str(), SERVICE_QUERY_STATUS));
    if (service == nullptr) return;
    SERVICE_STATUS *status = &view->service.status;
    if (look == StatusLook::fresh) {
        if (IsAsStarted(*status)) {
            Note(session, fmt::format("tvsc: {}: just started and silent so far: asking now would declare it dead",
                                      view->service.name));
            return;
        }
        if (QueryServiceStatus(service.get(), status)) view->source = "query";
        return;
    }
    SERVICE_STATUS answered = {};
    if (ControlService(service.get(), SERVICE_CONTROL_INTERROGATE, &answered)) {
        *status = answered;
    } else {
        Note(session, fmt::format("tvsc: {}: interrogate: {}", view->service.name, CodeText(GetLastError())));
        BOOL complete = FALSE;
        (void)tvQueryServiceStatusPassive(service.get(), status, &complete); // else the status is what it was
    }
    view->source = "interrogate";
}

ServiceView ViewOf(const Session &session, const ListedService &service) {
    const pid_t hint = IsThisMachine(session.options) ? ReadPidFile(service.name) : 0;
    return {service, service.complete ? "enumeration" : "peek", hint, std::nullopt, std::nullopt};
}

// The services of these names as they stand, or a note of a failure.
std::vector<ServiceView> ViewsOf(Session &session, const std::vector<std::string> &patterns,
                                 const std::string &action) {
    const std::vector<std::string> resolved = ResolveNames(session, patterns, action);
    std::vector<ListedService> services;
    std::vector<ServiceView> views;
    if (resolved.empty() || !ListServicesFor(session, action, &services)) return views;
    for (const std::string &name : resolved) {
        for (const ListedService &service : services) {
            if (service.name == name) views.push_back(ViewOf(session, service));
        }
    }
    return views;
}

int WorstStatus(const Session &session, const std::vector<ServiceView> &views) {
    if (!session.results.empty()) return STATUS_UNKNOWN;
    int worst = STATUS_RUNNING;
    for (const ServiceView &view : views) {
        const int exitStatus = StatusExitOf(view.service.status);
        if (worst == STATUS_RUNNING) worst = exitStatus;
    }
    return worst;
}

} // namespace

int RunList(Session &session, const ListFilter &filter) {
    std::vector<ListedService> services;
    if (!ListServicesFor(session, "list", &services)) return Finish(session);
    std::vector<ServiceView> views;
    for (const ListedService &service : services) {
        if (!PassesFilter(service, filter)) continue;
        ServiceView view = ViewOf(session, service);
        const bool wantsConfig = (!filter.brief && !filter.namesOnly) || !filter.group.empty();
        if (wantsConfig) view.config = ReadConfigByName(session, service.name);
        if (!filter.group.empty() && (!view.config || view.config->group != filter.group)) continue;
        views.push_back(std::move(view));
    }
    if (session.options.json) {
        PrintServicesJson(session, views);
    } else {
        PrintList(views, filter);
    }
    return EXIT_DONE;
}

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

int RunIsFailed(Session &session, const std::vector<std::string> &names) {
    const std::vector<ServiceView> views = ViewsOf(session, names, "is-failed");
    if (session.options.json) PrintServicesJson(session, views);
    if (!session.results.empty()) return STATUS_UNKNOWN;
    const bool failed =
        std::any_of(views.begin(), views.end(), [](const ServiceView &view) { return HasFailed(view.service.status); });
    return failed ? EXIT_DONE : EXIT_FAILED;
}

int RunShow(Session &session, const std::vector<std::string> &names) {
    std::vector<ServiceView> views = ViewsOf(session, names, "show");
    for (ServiceView &view : views) {
        view.config = ReadConfigByName(session, view.service.name);
        if (session.options.json) continue;
        PrintStatusBlock(view);
        if (view.config) PrintConfig(*view.config);
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
                fmt::print("{} {}  {}\n", MarkOf(related.status), Printable(related.name),
                           StateSummary(related.status));
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

int RunExplain(const Options &options, DWORD code) {
    const bool isKnown = Win32ErrorName(code) != nullptr;
    if (options.json) {
        PrintExplanationJson(code);
    } else if (isKnown) {
        fmt::print("{}\n", CodeText(code));
    } else {
        fmt::print(stderr, "tvsc: {}: none of the codes that are answered here\n", code);
    }
    return isKnown ? EXIT_DONE : EXIT_FAILED;
}
