// SPDX-License-Identifier: MIT
// lint: what in the registry would keep the service daemon from loading its services, and what would surprise at boot.
//
// The services are read, and the boot is planned, by what "tvsc order" does it with. Accounts and launchers are looked
// at only where the registry is that of this machine.
#include "tvreg/commands.h"
#include "tvreg/output.h"
#include "tvreg/registry_access.h"

#include "registry/key.h"
#include "registry/value_data.h"
#include "servd/service_keys.h"
#include "tv/winsvc.h"
#include "tvsc/boot_plan.h"
#include "tvsc/boot_words.h"
#include "util/json_text.h"
#include "util/little_endian.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>

namespace {

struct Finding {
    bool isFailure; // the daemon loads no service at all, or cannot start this one
    std::string key;
    std::string text;
};

std::string FaultText(const BootFault &fault) {
    const std::string what = fault.value.empty() ? "its key" : fault.value;
    return fmt::format("{} cannot be read ({}): the daemon loads no service", what,
                       CodeText(static_cast<LONG>(fault.code)));
}

// Why csh cannot run an image; empty when it can.
std::string WhyNoLauncher(const std::string &image) {
    if (image.find_first_of(" \t") != std::string::npos && access(image.c_str(), F_OK) != 0) {
        return "is a command line: an image path is the name of a csh script";
    }
    if (access(image.c_str(), F_OK) != 0) return "does not exist";
    if (access(image.c_str(), R_OK) != 0) return "cannot be read";
    std::ifstream file(image, std::ios::binary);
    std::string line;
    (void)std::getline(file, line);
    if (line.starts_with("\x7F"
                         "ELF")) {
        return "is a program: csh takes it for a script";
    }
    if (line.starts_with("#!") && line.find("csh") == std::string::npos) return "is a script of another shell than csh";
    return "";
}

// A value of a service's key; nothing where there is none.
std::optional<std::string> ValueOf(const std::string &service, const char *name) {
    const KeyPath key = {.root = HKEY_LOCAL_MACHINE, .path = fmt::format("{}\\{}", servicesKeyPath, service)};
    HKEY opened = OpenKey(key);
    const KeyGuard closed(&opened);
    DWORD type = 0;
    std::string data;
    const LONG code = ReadValueData(opened, name, &type, &data);
    if (code == ERROR_FILE_NOT_FOUND) return std::nullopt;
    Check(code, KeyPathText(key));
    return data;
}

bool IsTagMissing(const std::string &service) { return !ValueOf(service, tagValue); }

// Whether a group's order, as the registry has it, names the tag.
bool HoldsTag(const std::string &order, DWORD tag) {
    for (std::size_t at = dwordBytes; at + dwordBytes <= order.size(); at += dwordBytes) {
        if (DwordAt(order.data() + at) == tag) return true;
    }
    return false;
}

void LookAtPrograms(const BootDatabase &database, std::vector<Finding> *findings) {
    for (const BootService &service : database.services) {
        const std::string why = service.imagePath.empty() ? "" : WhyNoLauncher(service.imagePath);
        if (!why.empty()) {
            findings->push_back({true, service.name, fmt::format("its image {} {}", service.imagePath, why)});
        }
        const std::string account = IsMasked(service) ? "" : service.account.value_or("");
        if (!account.empty() && getpwnam(account.c_str()) == nullptr) {
            findings->push_back(
                {true, service.name, fmt::format("its account {} is no user of this machine", account)});
        }
    }
}

// What is told of the boot, and what would be told if all services were started then: one that is started later walks
// over its dependencies likewise. Of those that are disabled, what keeps them from starting surprises nobody.
std::vector<BootRemark> RemarksOf(const BootDatabase &database) {
    std::vector<BootRemark> remarks = PlanBoot(database).remarks;
    BootDatabase all = database;
    for (BootService &service : all.services) {
        service.start = SERVICE_AUTO_START;
    }
    for (BootRemark &remark : PlanBoot(all).remarks) {
        const bool isDisabled = database.services[remark.service].start == SERVICE_DISABLED;
        const bool isTold = std::find(remarks.begin(), remarks.end(), remark) != remarks.end();
        if (remark.kind != BootRemarkKind::groupOrder && !isDisabled && !isTold) remarks.push_back(std::move(remark));
    }
    return remarks;
}

// A service without a tag has that of the one loaded before it, and its group may be sorted by that.
void LookAtTags(const BootDatabase &database, std::vector<Finding> *findings) {
    const KeyPath orderKey = {.root = HKEY_LOCAL_MACHINE, .path = tagOrderKeyPath};
    if (!KeyExists(orderKey)) return;
    HKEY order = OpenKey(orderKey);
    const KeyGuard closed(&order);
    for (const BootGroup &group : database.groups) {
        DWORD type = 0;
        std::string tags; // a count, and behind it the tags
        if (group.members.size() < 2) continue;
        if (ReadValueData(order, group.name.c_str(), &type, &tags) != ERROR_SUCCESS) continue;
        for (const std::size_t member : group.members) {
            const BootService &service = database.services[member];
            if (!HoldsTag(tags, service.tag) || !IsTagMissing(service.name)) continue;
            findings->push_back({false, service.name,
                                 fmt::format("has no Tag and takes that of the service loaded before it, {}, by which "
                                             "its group {} is sorted",
                                             service.tag, group.name)});
        }
    }
}

std::vector<Finding> FindAll(const Options &options) {
    std::vector<Finding> findings;
    BootDatabase database;
    std::vector<BootFault> faults;
    (void)ReadBootDatabase(RootOf({.root = HKEY_LOCAL_MACHINE, .path = {}}), &database, &faults);
    for (const BootFault &fault : faults) {
        if (fault.code == ERROR_REGISTRY_IO_FAILED) Check(ERROR_REGISTRY_IO_FAILED, "registry daemon");
        findings.push_back({true, fault.key, FaultText(fault)});
    }
    for (const BootRemark &remark : RemarksOf(database)) {
        if (remark.kind == BootRemarkKind::masked) continue; // as somebody wants it
        findings.push_back({false, database.services[remark.service].name, RemarkText(remark)});
    }
    LookAtTags(database, &findings);
    for (const std::string &name : database.deleted) {
        findings.push_back({false, name, "marked for deletion; the daemon deletes it as it starts"});
    }
    const bool isHere = options.host.empty() && std::getenv("TARVO_REGISTRY_HOST") == nullptr;
    if (isHere) LookAtPrograms(database, &findings);
    return findings;
}

} // namespace

int Lint(const Options &options) {
    const std::vector<Finding> findings = FindAll(options);
    const auto failures = std::count_if(findings.begin(), findings.end(), [](const Finding &f) { return f.isFailure; });
    if (options.json) {
        Json object = {{"schema", "tvreg.lint/1"}, {"findings", Json::array()}};
        for (const Finding &finding : findings) {
            Json entry = {{"level", finding.isFailure ? "fail" : "warn"}};
            SetText(entry, "key", finding.key);
            SetText(entry, "message", finding.text);
            object["findings"].push_back(entry);
        }
        PrintJson(object);
    } else {
        for (const Finding &finding : findings) {
            Print(fmt::format("{} {}: {}\n", finding.isFailure ? "FAIL" : "WARN", Printable(finding.key),
                              Printable(finding.text)));
        }
    }
    return failures > 0 ? EXIT_BAD_TEXT : 0;
}
