// SPDX-License-Identifier: MIT
// doctor: runs the checks and tells what they have found.
#include "tvsc/doctor.h"

#include "servd/service_keys.h"
#include "tvsc/findings.h"
#include "tvsc/json_output.h"
#include "tvsc/offline_registry.h"
#include "tvsc/output_format.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/shell_quoted.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

void CheckConnection(Session &session, const BootDatabase &database, Findings *findings) {
    Session quiet; // what it would say is a finding here
    quiet.options = session.options;
    (void)tvSetCallTimeout(nullptr, static_cast<DWORD>(session.options.callTimeoutSec * 1000)); // null is always valid
    quiet.manager.reset(tvOpenDaemon(session.options.host.c_str(), &quiet.initCode));
    if (quiet.manager != nullptr) return CheckDaemon(quiet, database, findings);
    findings->push_back(SilentDaemon(session.options, GetLastError()));
}

} // namespace

std::string QuotedKey(const std::string &path) { return ShellQuoted("HKLM\\" + path); }

std::string QuotedServiceKey(const std::string &service) {
    return QuotedKey(fmt::format("{}\\{}", servicesKeyPath, service));
}

const char *LevelWord(FindingLevel level) {
    constexpr const char *words[] = {"info", "warn", "fail"};
    return words[static_cast<std::size_t>(level)];
}

void PrintFindings(const Findings &findings) {
    for (const Finding &finding : findings) {
        const Colour colour = finding.level == FindingLevel::fail   ? Colour::red
                              : finding.level == FindingLevel::warn ? Colour::yellow
                                                                    : Colour::faint;
        fmt::print("{} {}\n", Coloured(colour, LevelWord(finding.level)),
                   Printable(finding.name + ": " + finding.found));
        fmt::print("     why: {}\n", Printable(finding.why));
        if (!finding.command.empty()) fmt::print("     try: {}\n", Printable(finding.command));
    }
}

namespace {

// What is there before any daemon is asked: the registry's text, and what it names on this machine.
int CheckFile(const Options &options, const std::string &path, BootDatabase *database, Findings *findings) {
    Session session;
    session.options = options;
    std::string problem;
    if (!TakeRegistryFile(path, &problem)) {
        Failed(session, path, "doctor", ERROR_INVALID_DATA, problem);
        return Finish(session);
    }
    Options here = options;
    here.host = "localhost";
    (void)CheckRegistry(here, database, findings); // there is no daemon that could be silent
    CheckPrograms(*database, findings);
    return EXIT_DONE;
}

void CheckAll(const Options &options, EntriesMending mending, BootDatabase *database, Findings *findings) {
    Session session;
    session.options = options;
    const bool isHere = IsThisMachine(options);
    if (isHere) CheckMachine(mending, findings);
    if (isHere) CheckDaemonProcess(findings);
    if (!CheckRegistry(options, database, findings)) {
        findings->push_back(SilentRegistry(options));
    } else if (isHere) {
        CheckPrograms(*database, findings);
    }
    CheckConnection(session, *database, findings);
    if (isHere) CheckExposure(findings);
}

} // namespace

int RunDoctor(const Options &options, const DoctorOptions &doctor) {
    Findings findings;
    BootDatabase database;
    if (doctor.mendsEntries && !IsThisMachine(options)) {
        Session session;
        session.options = options;
        Failed(session, options.host, "doctor", ERROR_NOT_SUPPORTED,
               "entries are removed on the machine itself: tvsc --ssh --host does it there");
        return Finish(session);
    }
    if (doctor.registryFile.empty()) {
        const EntriesMending mending = !doctor.mendsEntries ? EntriesMending::none
                                       : options.dryRun     ? EntriesMending::planned
                                                            : EntriesMending::done;
        CheckAll(options, mending, &database, &findings);
    } else if (const int status = CheckFile(options, doctor.registryFile, &database, &findings); status != EXIT_DONE) {
        return status;
    }
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding &a, const Finding &b) { return a.level > b.level; });
    const auto count = [&](FindingLevel level) {
        return std::count_if(findings.begin(), findings.end(), [&](const Finding &one) { return one.level == level; });
    };
    const auto fails = count(FindingLevel::fail);
    const auto warnings = count(FindingLevel::warn);
    if (options.json) {
        PrintFindingsJson(options, "", findings);
    } else {
        PrintFindings(findings);
        if (ShowsLegend()) {
            fmt::print("{} failure{}, {} warning{}; {} services looked at.\n", fails, fails == 1 ? "" : "s", warnings,
                       warnings == 1 ? "" : "s", database.services.size());
        }
    }
    if (fails != 0) return EXIT_NOT_CONFIGURED;
    return doctor.isStrict && warnings != 0 ? EXIT_FAILED : EXIT_DONE;
}
