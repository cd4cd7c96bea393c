// SPDX-License-Identifier: MIT
// words: what they are.
#include "tvsc/words.h"

#include "util/win32_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace {

constexpr const char *stateWords[] = {"stopped",          "start pending", "stop pending", "running",
                                      "continue pending", "pause pending", "paused"};
struct TypeWord {
    DWORD bit;
    const char *forPeople;
    const char *forPrograms;
};

constexpr TypeWord typeWords[] = {{SERVICE_KERNEL_DRIVER, "kernel driver", "kernel_driver"},
                                  {SERVICE_FILE_SYSTEM_DRIVER, "file system driver", "file_system_driver"},
                                  {SERVICE_ADAPTER, "adapter", "adapter"},
                                  {SERVICE_RECOGNIZER_DRIVER, "recognizer driver", "recognizer_driver"},
                                  {SERVICE_WIN32_OWN_PROCESS, "own process", "win32_own_process"},
                                  {SERVICE_WIN32_SHARE_PROCESS, "shared process", "win32_share_process"},
                                  {SERVICE_INTERACTIVE_PROCESS, "interactive", "interactive_process"}};

constexpr const char *errorControlWords[] = {"ignore", "normal", "severe", "critical"};
constexpr const char *startWords[] = {"boot", "system", "auto", "demand", "disabled"};

} // namespace

std::string CodeText(DWORD code) {
    const char *name = Win32ErrorName(code);
    const char *text = Win32ErrorText(code);
    return name != nullptr ? fmt::format("{} {}, {}", code, name, text) : fmt::format("{}", code);
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

std::string StepsText(const SERVICE_STATUS &status) {
    if (status.dwWaitHint == 0 && status.dwCheckPoint == 0) return "";
    return fmt::format("(check point {}, hint {} ms)", status.dwCheckPoint, status.dwWaitHint);
}

std::string StartWord(DWORD startType) {
    return startType <= SERVICE_DISABLED ? startWords[startType] : fmt::format("unknown {}", startType);
}

std::vector<std::string> TypeWords(DWORD type, bool machineReadable) {
    std::vector<std::string> words;
    for (const TypeWord &entry : typeWords) {
        if ((type & entry.bit) != 0) words.emplace_back(machineReadable ? entry.forPrograms : entry.forPeople);
    }
    return words;
}

std::string ServiceTypeText(DWORD type) {
    const std::vector<std::string> words = TypeWords(type);
    return words.empty() ? fmt::format("unknown {:#x}", type) : fmt::format("{}", fmt::join(words, ", "));
}

std::string ErrorControlWord(DWORD errorControl) {
    return errorControl <= SERVICE_ERROR_CRITICAL ? errorControlWords[errorControl]
                                                  : fmt::format("unknown {}", errorControl);
}

std::string DurationText(std::int64_t ms) {
    const std::int64_t seconds = std::max<std::int64_t>(ms, 0) / 1000;
    if (seconds < 60) return fmt::format("{} s", seconds);
    if (seconds < 60 * 60) return fmt::format("{} min {} s", seconds / 60, seconds % 60);
    if (seconds < 24 * 60 * 60) return fmt::format("{} h {} min", seconds / 3600, seconds / 60 % 60);
    return fmt::format("{} d {} h", seconds / 86400, seconds / 3600 % 24);
}
