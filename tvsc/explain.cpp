// SPDX-License-Identifier: MIT
// explain: what a code means, and why a service is as it is.
#include "tvsc/doctor.h"
#include "tvsc/findings.h"
#include "tvsc/json_output.h"
#include "tvsc/logs.h"
#include "tvsc/mask.h"
#include "tvsc/names.h"
#include "tvsc/report.h"
#include "tvsc/words.h"
#include "util/printable.h"
#include "util/shell_quoted.h"
#include "util/win32_names.h"

#include "svcapi/client.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr DWORD highestNamedCode = 16'000;

// The code that a word names, by its number or its symbol.
std::optional<DWORD> CodeNamed(const std::string &word) {
    if (!word.empty() && word.find_first_not_of("0123456789") == std::string::npos) {
        return word.size() < 10 ? static_cast<DWORD>(std::stoul(word)) : ~DWORD{0};
    }
    for (DWORD code = 0; word.starts_with("ERROR_") && code < highestNamedCode; ++code) {
        const char *name = Win32ErrorName(code);
        if (name != nullptr && word == name) return code;
    }
    return std::nullopt;
}

int ExplainCode(const Options &options, DWORD code) {
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

std::string MeaningOf(const ServiceView &view) {
    const SERVICE_STATUS &status = view.service.status;
    if (view.process.isGone) return "its process has ended without a word; the daemon has not noticed";
    if (HasFailed(status) && status.dwWin32ExitCode == ERROR_PROCESS_ABORTED) {
        return "its process ended without reporting that it stops, or an announced wait passed in silence";
    }
    if (HasFailed(status)) return "it reported an error when it stopped: " + CodeText(status.dwWin32ExitCode);
    switch (status.dwCurrentState) {
    case SERVICE_STOPPED: return "it is not running, and nothing went wrong when it ran last";
    case SERVICE_RUNNING: return "it runs";
    case SERVICE_PAUSED: return "it was told to pause";
    default: return "it is on its way; the daemon waits for its next report";
    }
}

std::string NextStep(const ServiceView &view) {
    const std::string name = NameArgument(view.service.name);
    const SERVICE_STATUS &status = view.service.status;
    const bool isMasked = view.config && IsMasked(view.config->account);
    if (isMasked && status.dwCurrentState == SERVICE_STOPPED) return "tvsc unmask " + name;
    if (view.process.isGone || HasFailed(status)) return fmt::format("tvsc logs {0}; tvsc start {0} --with-deps", name);
    switch (status.dwCurrentState) {
    case SERVICE_STOPPED: return fmt::format("tvsc start {} --with-deps", name);
    case SERVICE_PAUSED: return "tvsc continue " + name;
    case SERVICE_RUNNING: return "";
    default: return "tvsc wait " + name;
    }
}

// What it depends on and is not running.
void CheckNeeds(Session &session, const std::string &name, Findings *findings) {
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_ENUMERATE_DEPENDENTS));
    std::vector<ListedService> needed;
    const DWORD rc =
        service == nullptr ? GetLastError() : EnumerateDependencies(service.get(), SERVICE_STATE_ALL, &needed);
    if (rc != ERROR_SUCCESS) {
        findings->push_back({FindingLevel::fail, "dependencies", name, "its dependencies: " + CodeText(rc),
                             "it cannot be started", fmt::format("tvsc config {} --depends ...", NameArgument(name))});
    }
    for (const ListedService &one : needed) {
        if (one.status.dwCurrentState != SERVICE_STOPPED) continue;
        findings->push_back({FindingLevel::warn, "dependencies", name,
                             fmt::format("needs {}, which is {}", one.name, StateSummary(one.status)),
                             "its start is refused with 1068",
                             fmt::format("tvsc start {} --with-deps", NameArgument(name))});
    }
}

int ExplainService(Session &session, const std::string &pattern) {
    std::vector<ServiceView> views = ViewsOf(session, {pattern}, "explain");
    Findings all;
    BootDatabase database;
    const bool hasRegistry = CheckRegistry(session.options, &database, &all);
    if (hasRegistry && IsThisMachine(session.options)) CheckPrograms(database, &all);
    CheckDaemon(session, database, &all);
    for (ServiceView &view : views) {
        Findings findings;
        std::copy_if(all.begin(), all.end(), std::back_inserter(findings),
                     [&](const Finding &one) { return one.name == view.service.name; });
        if (view.service.status.dwCurrentState == SERVICE_STOPPED) CheckNeeds(session, view.service.name, &findings);
        view.config = ReadConfigByName(session, view.service.name);
        if (view.config && view.config->startType == SERVICE_DISABLED) {
            findings.push_back({FindingLevel::info, "start", view.service.name, "is disabled",
                                "tvsc refuses to start it (1058)", "tvsc enable " + NameArgument(view.service.name)});
        }
        if (session.options.json) {
            PrintFindingsJson(session.options, view.service.name, findings);
            continue;
        }
        const RowMark mark = MarkOf(view.service.status, view.process);
        fmt::print("{} {}: {}\n", Coloured(mark.colour, mark.mark), Printable(view.service.name),
                   StateText(view.service.status, view.process));
        fmt::print("  {}\n", MeaningOf(view));
        PrintFindings(findings);
        if (const std::string next = NextStep(view); !next.empty()) fmt::print("next: {}\n", Printable(next));
        if (view.service.status.dwCurrentState == SERVICE_STOPPED) NoteLastLines(session, view.service.name);
    }
    return session.results.empty() ? EXIT_DONE : Finish(session);
}

} // namespace

int RunExplain(const Options &options, const std::string &what) {
    const std::optional<DWORD> code = CodeNamed(what);
    return code ? ExplainCode(options, *code) : RunExplainService(options, what);
}

int RunExplainService(const Options &options, const std::string &name) {
    Session session;
    session.options = options;
    const int opened = OpenSession(session, true);
    if (opened == EXIT_DONE) return ExplainService(session, name);
    (void)Finish(session); // for the JSON; the status is that of the connection
    return opened;
}
