// SPDX-License-Identifier: MIT
// registry_findings: what is wrong in the registry and with what it names.
#include "registry/connection.h"
#include "registry/parameters.h"
#include "registry/regd_clnt.h"
#include "rpc/dial.h"
#include "servd/service_keys.h"
#include "svcapi/image_launcher.h"
#include "tv/tvregistry.h"
#include "tv/winsvc.h"
#include "tvsc/boot_words.h"
#include "tvsc/export.h"
#include "tvsc/findings.h"
#include "tvsc/hosted_settings.h"
#include "tvsc/words.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>
#include <pwd.h>
#include <strings.h>

#include <algorithm>
#include <sstream>
#include <string_view>

namespace {

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

// Whether a script becomes its program. One that only sources another script leaves that to it.
bool HasExec(const std::string &script) {
    constexpr std::string_view separators = ";()&|`{}";
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) {
        std::replace_if(
            line.begin(), line.end(), [&](char c) { return separators.find(c) != std::string_view::npos; }, ' ');
        std::istringstream words(line);
        for (std::string word; words >> word && word.front() != '#';) {
            if (word == "exec" || word == "source") return true;
        }
    }
    return false;
}

std::string WhyNotStarted(const std::string &imagePath) {
    const std::string why = WhyNoLauncher(imagePath);
    std::string script;
    if (!why.empty() || !ReadTextFile(imagePath, &script) || HasExec(script)) return why;
    return "a script without exec; its program would have another process id than the daemon knows";
}

void CheckImage(const BootService &service, Findings *findings) {
    if (service.imagePath.empty()) return; // told by the plan
    const std::string why = WhyNotStarted(service.imagePath);
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

// What the registry daemon of a host says its version is, asked past the registry's functions: these know no daemon
// that is too old for them. They have tried before, and left who asks.
std::optional<regd_REG_QUERY_VERSION_RETURN> ToldVersion(const Options &options) {
    char host[registryHostBytes] = "";
    if (options.host != "localhost") CopyHostName(host, options.host.c_str());
    tvGenRegistryONCAddr(host, nullptr, nullptr, nullptr);
    const RpcClient client(DialHost(host, REGDAEMONPROG, REGDAEMONVERS));
    if (client == nullptr || g_userData.name == nullptr) return std::nullopt;
    regd_REG_QUERY_VERSION argument = {g_userData};
    regd_REG_QUERY_VERSION_RES *const reply = reg_query_version_2(&argument, client.get());
    if (reply == nullptr) return std::nullopt;
    const regd_REG_QUERY_VERSION_RETURN told = reply->body;
    FreeRecord(reply);
    return told;
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
    // An automatic one is no exception: its key is gone before anything is started.
    for (const std::string &name : database->deleted) {
        findings->push_back({FindingLevel::info, "registry", name, "is marked for deletion",
                             "the daemon deletes its key when it starts", ""});
    }
    return true;
}

Finding SilentRegistry(const Options &options) {
    Finding finding = {FindingLevel::fail,
                       "registry",
                       "registry daemon",
                       "does not answer",
                       "the daemon loads no services and starts none",
                       "systemctl start tvregd"};
    const std::optional<regd_REG_QUERY_VERSION_RETURN> told = ToldVersion(options);
    if (!told || tvVerifyRegistryVersion(told->major, told->minor, told->patch) >= 0) return finding;
    finding.found = fmt::format("has version {}.{}.{}, and {}.{} is the oldest that is worked with", told->major,
                                told->minor, told->patch, oldestRegistryMajor, oldestRegistryMinor);
    finding.command = "apt-get install tvregd";
    return finding;
}

void CheckPrograms(const BootDatabase &database, Findings *findings) {
    for (const BootService &service : database.services) {
        CheckImage(service, findings);
        CheckAccount(service, findings);
    }
}
