// SPDX-License-Identifier: MIT
// plan: tells what the daemon will do, without doing it and without asking it: the registry says it all.
#include "tvsc/plan.h"

#include "servd/service_keys.h"
#include "tvsc/boot_words.h"
#include "tvsc/json_output.h"
#include "tvsc/output_format.h"
#include "tvsc/report.h"
#include "tvsc/table.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

namespace {

DWORD OpenMachine(const std::string &host, HKEY *machine) {
    *machine = HKEY_LOCAL_MACHINE;
    if (host == "localhost") return ERROR_SUCCESS;
    return static_cast<DWORD>(RegConnectRegistryA(host.c_str(), HKEY_LOCAL_MACHINE, machine));
}

std::string WhyOf(const BootDatabase &database, const BootStep &step) {
    if (!step.neededBy) return fmt::format("automatic (record {})", step.service + 1);
    const std::string &dependent = database.services[*step.neededBy].name;
    return step.throughGroup == nullptr ? fmt::format("needed by {}", dependent)
                                        : fmt::format("needed by {}, group {}", dependent, *step.throughGroup);
}

std::string SecondsText(std::size_t seconds) {
    return seconds < 60 ? fmt::format("{} s", seconds) : fmt::format("{} min {} s", seconds / 60, seconds % 60);
}

void PrintPlan(const BootDatabase &database, const BootPlan &plan) {
    std::vector<std::vector<std::string>> rows = {{"#", "SERVICE", "START", "WHY", "WORST CASE", "LAUNCHER"}};
    const std::vector<std::size_t> worstCases = WorstCasesSec(database, plan);
    for (const BootStep &step : plan.steps) {
        const BootService &service = database.services[step.service];
        rows.push_back({std::to_string(rows.size()), service.name, service.start ? StartWord(*service.start) : "-",
                        WhyOf(database, step), SecondsText(worstCases[rows.size() - 1]), service.imagePath});
    }
    if (!plan.steps.empty()) PrintTable(rows);
    for (const BootRemark &remark : plan.remarks) {
        fmt::print("! {}\n", Printable(database.services[remark.service].name + ": " + RemarkText(remark)));
    }
    for (const std::string &name : database.deleted) {
        fmt::print("! {}: marked for deletion; the daemon deletes it as it starts\n", Printable(name));
    }
    if (!ShowsLegend()) return;
    fmt::print("{} of {} service{} started with the daemon", plan.steps.size(), database.services.size(),
               database.services.size() == 1 ? "" : "s");
    if (!plan.steps.empty()) {
        fmt::print(", which answers nobody before that is done: about {} at worst",
                   SecondsText(WorstCaseSec(database, plan)));
    }
    fmt::print(".\n");
}

// A key among the services that is none, as some programs keep one there: what makes it one that loads and is never
// started.
void TellMending(Session &session, const std::string &key) {
    const std::string path = ShellQuoted(fmt::format("HKLM\\{}\\{}", servicesKeyPath, key));
    Note(session, "  a service that is never started, so that the others load:");
    Note(session, fmt::format("    tvreg add {} -v {} -t dword -d {}", path, typeValue, SERVICE_ADAPTER));
    Note(session, fmt::format("    tvreg add {} -v {} -t dword -d {}", path, startTypeValue, SERVICE_DISABLED));
    Note(session, fmt::format("    tvreg add {} -v {} -d {}", path, displayNameValue, ShellQuoted(key)));
    Note(session, "  or, with all below it, away with it:");
    Note(session, fmt::format("    tvreg delete {}", path));
}

// The registry cannot be reached, or the daemon would find its database broken.
void TellFault(Session &session, const BootFault &fault) {
    if (fault.code == ERROR_REGISTRY_IO_FAILED) {
        Failed(session, session.options.host, "plan", fault.code, "the registry daemon does not answer");
        return;
    }
    const std::string what = fault.value.empty() ? "its key" : fault.value;
    Failed(session, fault.key, "plan", ERROR_DATABASE_DOES_NOT_EXIST,
           fmt::format("{} cannot be read ({}); a daemon that starts now loads no services and starts none", what,
                       CodeText(fault.code)));
    const bool isIncomplete = fault.value == typeValue || fault.value == displayNameValue;
    if (fault.code == ERROR_FILE_NOT_FOUND && isIncomplete) TellMending(session, fault.key);
}

} // namespace

int RunPlanBoot(const Options &options) {
    Session session;
    session.options = options;
    HKEY machine = 0;
    std::optional<BootFault> fault;
    BootDatabase database;
    if (const DWORD code = OpenMachine(options.host, &machine); code != ERROR_SUCCESS) {
        fault = BootFault{ERROR_REGISTRY_IO_FAILED, "", ""};
    } else {
        fault = ReadBootDatabase(machine, &database);
    }
    if (fault) {
        TellFault(session, *fault);
        return Finish(session);
    }
    const BootPlan plan = PlanBoot(database);
    if (options.json) {
        PrintPlanJson(options, database, plan);
    } else {
        PrintPlan(database, plan);
    }
    return EXIT_DONE;
}
