// SPDX-License-Identifier: MIT
// daemon_findings: what the running daemon has against what the registry and the kernel have.
#include "rpc/dial.h"
#include "servd/programs.h"
#include "svcapi/client.h"
#include "svcapi/status_watch.h"
#include "tvsc/findings.h"
#include "tvsc/names.h"
#include "tvsc/port_mapper.h"
#include "tvsc/reachability.h"
#include "tvsc/words.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace {

constexpr DWORD longLockSec = 60;

void CheckLock(Session &session, Findings *findings) {
    LockStatus lock;
    if (QueryLock(session.manager.get(), &lock) != ERROR_SUCCESS || !lock.locked || lock.durationSec < longLockSec)
        return;
    findings->push_back({FindingLevel::warn, "lock", "database lock",
                         fmt::format("held by {} for {} s", lock.owner, lock.durationSec),
                         "every start is refused with 1055, and nothing times it out", "tvsc lock release"});
}

void CheckProcess(const ServiceView &view, Findings *findings) {
    const std::string name = NameArgument(view.service.name);
    if (view.process.isGone) {
        findings->push_back({FindingLevel::warn, "process", view.service.name,
                             fmt::format("is {}", StateText(view.service.status, view.process)),
                             "the daemon takes it for running until somebody controls it",
                             fmt::format("tvsc status --fresh {}", name)});
    } else if (view.service.complete && IsAsStarted(view.service.status)) {
        findings->push_back({FindingLevel::warn, "process", view.service.name,
                             "was started and has reported nothing yet",
                             "where its process is gone it can be neither stopped nor started (1052, 1056)",
                             fmt::format("tvsc reset {}", name)});
    }
}

// Those that one side knows and the other one does not.
void CheckRecords(const std::vector<ServiceView> &views, const BootDatabase &database, Findings *findings) {
    for (const BootService &service : database.services) {
        const auto isIt = [&](const ServiceView &view) { return view.service.name == service.name; };
        if (std::any_of(views.begin(), views.end(), isIt)) continue;
        findings->push_back({FindingLevel::warn, "memory", service.name,
                             "is in the registry, and the daemon does not list it",
                             "what an import brings takes effect when the daemon starts again, which starts running "
                             "services twice: stop "
                             "them first (its type may also be none that is listed)",
                             "tvsc stop --all, then start the daemon again"});
    }
    for (const ServiceView &view : views) {
        const auto isIt = [&](const BootService &service) { return service.name == view.service.name; };
        if (std::any_of(database.services.begin(), database.services.end(), isIt)) continue;
        findings->push_back({FindingLevel::warn, "memory", view.service.name, "has lost its key in the registry",
                             "it is gone when the daemon starts again, and cannot be started properly before",
                             fmt::format("tvsc delete {}", NameArgument(view.service.name))});
    }
}

// A name that was changed behind the daemon's back.
void CheckDisplayNames(const std::vector<ServiceView> &views, const BootDatabase &database, Findings *findings) {
    for (const BootService &service : database.services) {
        const auto view = std::find_if(views.begin(), views.end(),
                                       [&](const ServiceView &one) { return one.service.name == service.name; });
        if (view == views.end() || view->service.displayName == service.displayName) continue;
        findings->push_back({FindingLevel::warn, "memory", service.name,
                             fmt::format("is called \"{}\" in the registry, and \"{}\" by the daemon",
                                         service.displayName, view->service.displayName),
                             "the daemon takes its name from the registry when it starts, not before",
                             fmt::format("tvsc config {} {}", NameArgument(service.name),
                                         OptionArgument("--display", service.displayName))});
    }
}

void CheckNames(const std::vector<ServiceView> &views, Findings *findings) {
    std::map<std::string, std::string> byDisplay;
    for (const ServiceView &view : views) {
        const auto [first, isNew] = byDisplay.try_emplace(view.service.displayName, view.service.name);
        if (isNew) continue;
        findings->push_back({FindingLevel::warn, "names", view.service.name,
                             fmt::format("has the display name of {}", first->second),
                             "whoever asks by the display name gets the other one",
                             fmt::format("tvsc config {} --display ...", NameArgument(view.service.name))});
    }
}

} // namespace

Finding SilentDaemon(const Options &options, DWORD code) {
    Finding finding = {FindingLevel::fail,
                       "daemon",
                       "servd",
                       "does not answer: " + CodeText(code),
                       "nothing can be started, stopped or looked at",
                       "systemctl start servd"};
    in_addr address = {};
    if (!ResolveHost(options.host.c_str(), &address)) return finding;
    const std::optional<std::vector<Registration>> all = ReadRegistrations(address);
    if (!all) return finding; // of this machine it is told
    const auto entry = std::find_if(all->begin(), all->end(), [](const Registration &one) {
        return one.program == SERVDAEMONPROG && one.version == SERVDAEMONVERS && one.transport == "tcp";
    });
    if (entry == all->end()) {
        finding.found = "is not registered at the port mapper";
        return finding;
    }
    switch (LookForDaemon(options.host)) {
    case DaemonPresence::refused:
        finding.found = fmt::format("listens at {}, and this user is refused", entry->address);
        finding.command = "sudo adduser $USER tv-admin";
        break;
    case DaemonPresence::absent:
        finding.found =
            fmt::format("is registered with {}, where nobody listens: it has ended without a word", entry->address);
        break;
    default:
        finding.found = fmt::format("is registered with {} and does not answer: {}", entry->address, CodeText(code));
        finding.why +=
            "; it serves one request at a time, and at its start none before all automatic services are started";
        finding.command = "tvsc wait-online";
    }
    return finding;
}

void CheckDaemon(Session &session, const BootDatabase &database, Findings *findings) {
    CheckLock(session, findings);
    std::vector<ListedService> services;
    if (session.initCode != ERROR_SUCCESS) {
        findings->push_back({FindingLevel::fail, "daemon", "servd", "runs without its services (1065)",
                             "the database did not load when it started",
                             "mend what is told of the registry, then start the daemon again"});
        return;
    }
    if (EnumerateAllServices(session.manager.get(), &services) != ERROR_SUCCESS) return;
    std::vector<ServiceView> views;
    for (const ListedService &service : services) {
        views.push_back(ViewOf(session, service));
        CheckProcess(views.back(), findings);
        if (service.complete) continue;
        findings->push_back({FindingLevel::info, "memory", service.name, "is in the daemon's record 0",
                             "the daemon does not enumerate it; it gets another record when the daemon starts again",
                             ""});
    }
    CheckRecords(views, database, findings);
    CheckDisplayNames(views, database, findings);
    if (IsThisMachine(session.options)) CheckChildren(views, findings);
    CheckNames(views, findings);
}
