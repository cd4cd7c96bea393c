// SPDX-License-Identifier: MIT
// words: what they are.
#include "tvsc/words.h"

#include "util/win32_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr const char *stateWords[] = {"stopped",          "start pending", "stop pending", "running",
                                      "continue pending", "pause pending", "paused"};
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

std::string StartWord(DWORD startType) {
    return startType <= SERVICE_DISABLED ? startWords[startType] : fmt::format("unknown {}", startType);
}
