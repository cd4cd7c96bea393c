// SPDX-License-Identifier: MIT
// registry_findings: what is wrong in the registry and with what it names.
#include "servd/service_keys.h"
#include "svcapi/image_launcher.h"
#include "tv/winsvc.h"
#include "tvsc/boot_words.h"
#include "tvsc/findings.h"
#include "tvsc/hosted_settings.h"
#include "tvsc/words.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>
#include <pwd.h>
#include <strings.h>

#include <tuple>

namespace {

constexpr DWORD leastRegistryMajor = 2, leastRegistryMinor = 3;

std::string MendingOf(const BootFault &fault) {
    if (fault.key == "Services" || fault.value.empty()) return "";
    const bool isMissing = fault.code == ERROR_FILE_NOT_FOUND;
    if (isMissing && fault.value == typeValue)
        return fmt::format("tvreg add {} -v Type -t dword -d 16", QuotedServiceKey(fault.key));
    if (isMissing && fault.value == displayNameValue) {
        return fmt::format("tvreg add {} -v DisplayName -d {}", QuotedServiceKey(fault.key), ShellQuoted(fault.key));
    }
    if (fault.key == "ServiceGroupOrder") {
        return fmt::format("tvreg add {} -v List -t multi -d ''", QuotedKey(groupOrderKeyPath));
    }
    if (fault.key == "GroupOrderList") {
        return fmt::format("tvreg delete {} -v {}", QuotedKey(tagOrderKeyPath), ShellQuoted(fault.value));
    }
    return fmt::format("tvreg delete {} -v {}", QuotedServiceKey(fault.key), fault.value);
}

std::string MendingOf(const BootRemark &remark, const std::string &name) {
    switch (remark.kind) {
    case BootRemarkKind::ring:
    case BootRemarkKind::unknownService:
    case BootRemarkKind::emptyGroup: return fmt::format("tvsc config {} --depends ...", NameArgument(name));
    case BootRemarkKind::noImage: return fmt::format("tvsc config {} --exec ...", NameArgument(name));
    case BootRemarkKind::disabled: return fmt::format("tvsc config {} --start demand", NameArgument(name));
    default: return "";
    }
}

constexpr char loadsNothing[] = "a daemon that starts now loads no services and starts none (1065)";

// Programs that tell of their events make this key, with one for each log below it.
bool IsEventSources(const BootFault &fault) {
    return fault.code == ERROR_FILE_NOT_FOUND && strcasecmp(fault.key.c_str(), "EventLog") == 0;
}

Finding EventSourcesFinding(const BootFault &fault) {
    const std::string key = QuotedServiceKey(fault.key);
    return {FindingLevel::fail,
            "registry",
            fault.key,
            fmt::format("has no {}: it holds sources of events, and is no service", fault.value),
            loadsNothing,
            fault.value == typeValue
                ? fmt::format("tvreg add {0} -v {1} -t dword -d {2} && tvreg add {0} -v {3} -t dword -d {4}", key,
                              typeValue, SERVICE_ADAPTER, startTypeValue, SERVICE_DISABLED)
                : fmt::format("tvreg add {} -v {} -d {}", key, fault.value, ShellQuoted(fault.key))};
}

Finding FindingOf(const BootFault &fault) {
    if (IsEventSources(fault)) return EventSourcesFinding(fault);
    const std::string what = fault.value.empty() ? "its key" : fault.value;
    return {FindingLevel::fail, "registry",
            fault.key,          fmt::format("{} cannot be read: {}", what, CodeText(fault.code)),
            loadsNothing,       MendingOf(fault)};
}

// All of what may surprise: what the automatic start comes by, and what the other services have of it, too.
std::vector<BootRemark> RemarksOn(const BootDatabase &database) {
    std::vector<BootRemark> remarks = RemarkNeeds(database);
    const auto isAlike = [](const BootRemark &remark) {
        return remark.kind == BootRemarkKind::ring || remark.kind == BootRemarkKind::unknownService ||
               remark.kind == BootRemarkKind::emptyGroup || remark.kind == BootRemarkKind::unreadable ||
               remark.kind == BootRemarkKind::noImage || remark.kind == BootRemarkKind::masked;
    };
    for (BootRemark &remark : PlanBoot(database).remarks) {
        if (!isAlike(remark)) remarks.push_back(std::move(remark));
    }
    for (std::size_t i = 0; i < database.services.size(); ++i) {
        const BootService &service = database.services[i];
        const bool isStarted = service.start && *service.start <= SERVICE_DEMAND_START;
        if (isStarted && service.imagePath.empty()) remarks.push_back({BootRemarkKind::noImage, i, ""});
    }
    return remarks;
}

Finding FindingOf(const BootRemark &remark, const std::string &name) {
    const bool fails = remark.kind == BootRemarkKind::ring || remark.kind == BootRemarkKind::noImage;
    const bool isPassedOver =
        remark.kind == BootRemarkKind::unknownService || remark.kind == BootRemarkKind::emptyGroup;
    return {fails ? FindingLevel::fail : FindingLevel::warn,
            remark.kind == BootRemarkKind::noImage ? "start" : "dependencies",
            name,
            RemarkText(remark),
            fails          ? "it cannot be started"
            : isPassedOver ? "it is started without what it is said to need"
                           : "it surprises when the daemon starts",
            MendingOf(remark, name)};
}

void CheckImage(const BootService &service, Findings *findings) {
    if (service.imagePath.empty()) return; // told by the plan
    const std::string why = WhyNoLauncher(service.imagePath);
    if (!why.empty()) {
        findings->push_back({FindingLevel::fail, "start", service.name,
                             fmt::format("its image {}: {}", service.imagePath, why),
                             "its start fails, with 1053 after a quarter of a minute",
                             fmt::format("tvsc config {} --exec ...", NameArgument(service.name))});
        return;
    }
    if (!IsTvhostImage(service.imagePath)) return;
    HostParameters parameters;
    std::string problem;
    const DWORD rc = ReadHostParameters(service.name, &parameters, &problem);
    if (rc == ERROR_SUCCESS) problem = WhyNoProgram(parameters.application);
    if (problem.empty()) return;
    findings->push_back(
        {FindingLevel::fail, "start", service.name,
         rc == ERROR_SUCCESS ? fmt::format("its program {}: {}", parameters.application, problem) : problem,
         "its start fails", fmt::format("tvsc config {} --exec ...", NameArgument(service.name))});
}

void CheckAccount(const BootService &service, Findings *findings) {
    const std::optional<std::string> &account = service.account;
    if (!account || IsMasked(service)) return;
    if (account->empty()) {
        findings->push_back({FindingLevel::warn, "start", service.name, "its account is empty",
                             "an empty account means user id 0, not the daemon's user",
                             fmt::format("tvreg delete {} -v {}", QuotedServiceKey(service.name), accountValue)});
    } else if (getpwnam(account->c_str()) == nullptr) {
        findings->push_back({FindingLevel::fail, "start", service.name,
                             fmt::format("its account {} is no user of this machine", *account),
                             "its start fails with 3; values of Windows keep dependencies here",
                             fmt::format("tvsc config {} --user USER", NameArgument(service.name))});
    }
}

} // namespace

bool CheckRegistry(const Options &options, BootDatabase *database, Findings *findings) {
    HKEY machine = HKEY_LOCAL_MACHINE;
    if (options.host != "localhost" &&
        RegConnectRegistryA(options.host.c_str(), HKEY_LOCAL_MACHINE, &machine) != ERROR_SUCCESS) {
        return false;
    }
    std::vector<BootFault> faults;
    (void)ReadBootDatabase(machine, database, &faults); // the first one is among them
    for (const BootFault &fault : faults) {
        if (fault.code == ERROR_REGISTRY_IO_FAILED) return false;
        findings->push_back(FindingOf(fault));
    }
    for (const BootRemark &remark : RemarksOn(*database)) {
        findings->push_back(FindingOf(remark, database->services[remark.service].name));
    }
    CheckValues(machine, *database, findings);
    for (const BootService &service : database->services) {
        if (!IsMasked(service)) continue;
        findings->push_back({FindingLevel::info, "start", service.name, "it is masked", "nobody can start it",
                             fmt::format("tvsc unmask {}", NameArgument(service.name))});
    }
    for (const std::string &name : database->deleted) {
        findings->push_back({FindingLevel::info, "registry", name, "is marked for deletion",
                             "the daemon deletes its key when it starts", ""});
    }
    return true;
}

void CheckRegistryVersion(Findings *findings) {
    DWORD major = 0, minor = 0, patch = 0;
    const LONG rc = RegQueryVersionInfo(&major, &minor, &patch);
    if (rc != ERROR_SUCCESS) {
        findings->push_back({FindingLevel::warn, "registry", "registry daemon",
                             "does not tell its version: " + CodeText(static_cast<DWORD>(rc)),
                             "an old one may lack what the service daemon calls", ""});
    } else if (std::tie(major, minor) < std::tie(leastRegistryMajor, leastRegistryMinor)) {
        findings->push_back({FindingLevel::fail, "registry", "registry daemon",
                             fmt::format("has version {}.{}.{}", major, minor, patch),
                             fmt::format("the service daemon needs {}.{}", leastRegistryMajor, leastRegistryMinor),
                             "apt-get install tvregd"});
    }
}

void CheckPrograms(const BootDatabase &database, Findings *findings) {
    for (const BootService &service : database.services) {
        CheckImage(service, findings);
        CheckAccount(service, findings);
    }
}
