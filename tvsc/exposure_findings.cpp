// SPDX-License-Identifier: MIT
// exposure_findings: whether somebody else than root and the administrators gets through to a daemon.
//
// Whoever reaches the service daemon may have it run anything as root. That is tried by the program that guards the
// ports, as a user without rights; where it is not installed, only where the daemon listens can be told.
#include "servd/programs.h"
#include "tvsc/findings.h"
#include "tvsc/host_run.h"
#include "tvsc/port_mapper.h"

#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

constexpr char why[] = "whoever reaches the service daemon may have it run anything as root";
constexpr char settingFile[] = "/etc/default/tv-guard";
constexpr double guardSec = 15; // it gives each of two ports five
constexpr std::size_t mostGuardBytes = 64 * 1024;
constexpr int notInstalled = 127;

HostRun AskGuard() {
    std::vector<HostRun> runs(1);
    runs.front().command = {"/bin/sh", "-c",
                            "PATH=$PATH:/usr/sbin:/usr/local/sbin; command -v tv-guard >/dev/null || exit 127; "
                            "exec tv-guard check 2>&1"};
    RunSideBySide(&runs, {.parallel = 1, .timeoutSec = guardSec, .mostBytes = mostGuardBytes});
    return std::move(runs.front());
}

// The word that the guard's own setting says; empty for none.
std::string GuardSetting() {
    std::ifstream file(settingFile);
    std::string setting;
    for (std::string line; std::getline(file, line);) {
        constexpr std::string_view name = "TV_PORTS=";
        if (!line.starts_with(name)) continue;
        setting = line.substr(name.size());
        std::erase_if(setting, [](char c) { return c == '"' || c == '\''; });
        setting.resize(std::min(setting.find_first_of(" \t#;"), setting.size()));
    }
    return setting;
}

// Closing what was left open on purpose takes another word in that file; a start of the unit would change nothing.
std::string MendingOfOpenPorts(const std::string &setting) {
    if (setting != "local" && setting != "open") return "systemctl enable --now tv-guard";
    return fmt::format("sed -i 's/^TV_PORTS=.*/TV_PORTS=closed/' {}", settingFile);
}

// Of an open port the line that says so, else the first one.
std::string TellingLine(const std::string &said) {
    std::istringstream lines(said);
    std::string told;
    for (std::string line; std::getline(lines, line);) {
        if (told.empty() || line.find("open") != std::string::npos) told = line;
    }
    return told;
}

bool HasOtherInterfaces() {
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0) return true; // cannot be told
    bool has = false;
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        const int family = one->ifa_addr != nullptr ? one->ifa_addr->sa_family : AF_UNSPEC;
        const bool isUp = (one->ifa_flags & IFF_UP) != 0 && (one->ifa_flags & IFF_LOOPBACK) == 0;
        has = has || (isUp && (family == AF_INET || family == AF_INET6));
    }
    freeifaddrs(all);
    return has;
}

// Where the daemon listens on every address; empty where it does not, or there is none.
std::string PortForEverybody() {
    const std::optional<std::vector<Registration>> all = ReadRegistrations({htonl(INADDR_LOOPBACK)});
    for (const Registration &one : all.value_or(std::vector<Registration>())) {
        const bool isDaemon = one.program == SERVDAEMONPROG && one.transport == "tcp";
        if (isDaemon && one.address.starts_with("0.0.0.0:")) return one.address;
    }
    return "";
}

Finding WithoutGuard() {
    const std::string everywhere = PortForEverybody();
    if (!everywhere.empty() && HasOtherInterfaces()) {
        return {FindingLevel::warn,
                "exposure",
                "ports",
                fmt::format("tv-guard is not installed, and the service daemon listens at {}, for other machines, too",
                            everywhere),
                why,
                "apt-get install tvregd, which brings tv-guard"};
    }
    return {FindingLevel::info,
            "exposure",
            "ports",
            "tv-guard is not installed: every user of this machine gets through",
            why,
            "apt-get install tvregd, which brings tv-guard"};
}

} // namespace

void CheckExposure(Findings *findings) {
    constexpr int closed = 0, open = 1;
    const HostRun guard = AskGuard();
    if (guard.exitStatus == closed) return;
    if (guard.exitStatus == notInstalled) {
        findings->push_back(WithoutGuard());
        return;
    }
    std::string told = TellingLine(guard.output);
    if (guard.exitStatus == open && !guard.wroteTooMuch) {
        const std::string setting = GuardSetting();
        if (told.empty()) told = "are open";
        if (setting == "local" || setting == "open") told += fmt::format(" (TV_PORTS={} in {})", setting, settingFile);
        findings->push_back({FindingLevel::fail, "exposure", "ports", told, why, MendingOfOpenPorts(setting)});
        return;
    }
    if (guard.timedOut) told = fmt::format("tv-guard check takes longer than {:g} s", guardSec);
    if (guard.wroteTooMuch) told = "tv-guard check does not stop writing";
    findings->push_back({FindingLevel::info, "exposure", "ports",
                         "whether they are closed is not to be told: " + (told.empty() ? "no reason was given" : told),
                         why, "sudo tv-guard check"});
}
