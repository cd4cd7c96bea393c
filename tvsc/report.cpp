// SPDX-License-Identifier: MIT
// report: the words for codes and states, and the exit status.
#include "tvsc/json_output.h"
#include "tvsc/text.h"
#include "tvsc/tvsc.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr const char *stateWords[] = {"stopped",          "start pending", "stop pending", "running",
                                      "continue pending", "pause pending", "paused"};
constexpr const char *startWords[] = {"boot", "system", "auto", "demand", "disabled"};

std::string Padded(const std::string &text, std::size_t width) {
    return text + std::string(width - std::min(width, ShownWidth(text)), ' ');
}

} // namespace

std::string CodeText(DWORD code) {
    const char *name = Win32ErrorName(code);
    const char *text = Win32ErrorText(code);
    return name != nullptr ? fmt::format("{} {}, {}", code, name, text) : fmt::format("{}", code);
}

int ExitStatusOf(DWORD code) {
    switch (code) {
    case ERROR_SUCCESS: return EXIT_DONE;
    case ERROR_INVALID_SERVICE_CONTROL: return EXIT_NOT_SUPPORTED;
    case ERROR_SERVICE_DOES_NOT_EXIST:
    case ERROR_FILE_NOT_FOUND: return EXIT_UNKNOWN_SERVICE;
    case ERROR_INVALID_SERVICE_ACCOUNT:
    case ERROR_CIRCULAR_DEPENDENCY:
    case ERROR_DATABASE_DOES_NOT_EXIST: return EXIT_NOT_CONFIGURED;
    case ERROR_SERVICE_NOT_ACTIVE: return EXIT_NOT_RUNNING;
    case ERROR_REGISTRY_IO_FAILED:
    case RPC_S_SERVER_UNAVAILABLE:
    case RPC_S_CALL_FAILED: return EXIT_UNREACHABLE;
    case ERROR_TIMEOUT: return EXIT_TIMED_OUT;
    case ERROR_SERVICE_DATABASE_LOCKED: return EXIT_LOCKED;
    case ERROR_SERVICE_DEPENDENCY_FAIL:
    case ERROR_DEPENDENT_SERVICES_RUNNING: return EXIT_DEPENDENCY;
    case ERROR_SERVICE_MARKED_FOR_DELETE: return EXIT_DELETE_PENDING;
    case ERROR_SERVICE_EXISTS:
    case ERROR_DUP_NAME: return EXIT_EXISTS;
    default: return EXIT_FAILED;
    }
}

std::string StateWord(DWORD state, bool machineReadable) {
    if (state < SERVICE_STOPPED || state > SERVICE_PAUSED) {
        return machineReadable ? "unknown" : fmt::format("unknown {}", state);
    }
    std::string word = stateWords[state - SERVICE_STOPPED];
    if (machineReadable) std::replace(word.begin(), word.end(), ' ', '_');
    return word;
}

std::string StateSummary(const SERVICE_STATUS &status) {
    const bool failed = status.dwCurrentState == SERVICE_STOPPED && status.dwWin32ExitCode != 0;
    return failed ? fmt::format("failed {}", status.dwWin32ExitCode) : StateWord(status.dwCurrentState);
}

std::string StartWord(DWORD startType) {
    return startType <= SERVICE_DISABLED ? startWords[startType] : fmt::format("unknown {}", startType);
}

void PrintTable(std::vector<std::vector<std::string>> rows, const std::vector<std::string> &marks) {
    std::vector<std::size_t> widths;
    for (auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = Printable(row[i]);
            widths[i] = std::max(widths[i], ShownWidth(row[i]));
        }
    }
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::string line = marks.empty() ? "" : marks[r] + " ";
        for (std::size_t i = 0; i < rows[r].size(); ++i) {
            line += (i == 0 ? "" : "  ") + Padded(rows[r][i], widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    }
}

void Done(Session &session, const std::string &name, const std::string &action, const std::string &text) {
    session.results.push_back({name, action, ERROR_SUCCESS, EXIT_DONE, text});
    if (!session.options.json && !session.options.quiet) fmt::print("{}\n", Printable(name + ": " + text));
}

void Failed(Session &session, const std::string &name, const std::string &action, DWORD code, const std::string &text) {
    const std::string words = text.empty() ? fmt::format("{} failed", action) : text;
    session.results.push_back({name, action, code, ExitStatusOf(code), words});
    fmt::print(stderr, "tvsc: {}: {}\n", Printable(name + ": " + words), CodeText(code));
}

void Note(const Session &session, const std::string &line) {
    if (!session.options.quiet) fmt::print(stderr, "{}\n", Printable(line));
}

int Finish(const Session &session) {
    if (session.options.json) PrintResultsJson(session);
    for (const ActionResult &result : session.results) {
        if (result.exitStatus != EXIT_DONE) return result.exitStatus;
    }
    return EXIT_DONE;
}
