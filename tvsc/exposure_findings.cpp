// SPDX-License-Identifier: MIT
// exposure_findings: whether somebody else than root and the administrators gets through to a daemon.
//
// Whoever reaches the service daemon may have it run anything as root. That is tried by the program that guards the
// ports, as a user without rights; without that program nothing is told.
#include "tvsc/findings.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <sstream>

namespace {

// What the guard has said, and its status; -1 where it is not installed.
int AskGuard(std::string *said) {
    constexpr char command[] = "PATH=$PATH:/usr/sbin:/usr/local/sbin; command -v tv-guard >/dev/null || exit 127; "
                               "exec tv-guard check 2>&1";
    FILE *const guard = popen(command, "re");
    if (guard == nullptr) return -1;
    std::array<char, 4096> chunk = {};
    for (std::size_t bytes; (bytes = std::fread(chunk.data(), 1, chunk.size(), guard)) > 0;) {
        said->append(chunk.data(), bytes);
    }
    const int status = pclose(guard);
    return WIFEXITED(status) && WEXITSTATUS(status) != 127 ? WEXITSTATUS(status) : -1;
}

} // namespace

void CheckExposure(Findings *findings) {
    constexpr int closed = 0, open = 1;
    std::string said;
    const int status = AskGuard(&said);
    if (status == closed || status < 0) return;
    std::istringstream lines(said);
    std::string told; // of an open port the line that says so
    for (std::string line; std::getline(lines, line);) {
        if (told.empty() || line.find("open") != std::string::npos) told = line;
    }
    if (status == open) {
        findings->push_back({FindingLevel::fail, "exposure", "ports", told.empty() ? "are open" : told,
                             "whoever reaches the service daemon may have it run anything as root",
                             "systemctl enable --now tv-guard"});
        return;
    }
    findings->push_back({FindingLevel::info, "exposure", "ports",
                         "whether they are closed is not to be told: " + (told.empty() ? "no reason was given" : told),
                         "whoever reaches the service daemon may have it run anything as root", "sudo tv-guard check"});
}
