// SPDX-License-Identifier: MIT
// process_findings: the service daemons of this machine and their children, as /proc shows them.
#include "tvhost/process_tree.h"
#include "tvsc/daemon_process.h"
#include "tvsc/findings.h"
#include "tvsc/leftovers.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

constexpr unsigned long manyDescriptors = 65'536;

// The soft limit; 0 where it cannot be read.
unsigned long DescriptorLimitOf(pid_t process) {
    std::ifstream limits("/proc/" + std::to_string(process) + "/limits");
    constexpr std::string_view wanted = "Max open files";
    for (std::string line; std::getline(limits, line);) {
        if (!line.starts_with(wanted)) continue;
        unsigned long soft = 0;
        std::istringstream(line.substr(wanted.size())) >> soft;
        return soft;
    }
    return 0;
}

// A line of numbers in base 16 in /proc/PID/status; 0 where it cannot be read.
std::uint64_t SignalSetOf(pid_t process, std::string_view line) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string text; std::getline(status, text);) {
        if (text.starts_with(line)) return std::strtoull(text.c_str() + line.size(), nullptr, 16);
    }
    return 0;
}

bool WouldEndBy(pid_t process, int signal) {
    const std::uint64_t bit = std::uint64_t{1} << (signal - 1);
    const bool isHeld = ((SignalSetOf(process, "SigBlk:") | SignalSetOf(process, "SigIgn:")) & bit) != 0;
    return !isHeld && (SignalSetOf(process, "SigCgt:") & bit) == 0;
}

void CheckChild(pid_t child, Findings *findings) {
    // A fork that has not become its program yet bears the daemon's name.
    if (IsServiceDaemon(child)) return;
    findings->push_back({FindingLevel::warn, "process", fmt::format("process {}", child),
                         fmt::format("{} is a child of the daemon, and no active service has it", NameOfProcess(child)),
                         "a start that fails with 1053 leaves its process behind", fmt::format("kill {}", child)});
}

// Services have the soft limit that the daemon was started with: it raises its own, and gives them the old one back.
void CheckServiceLimit(pid_t process, const std::string &service, Findings *findings) {
    const unsigned long limit = DescriptorLimitOf(process);
    if (limit <= manyDescriptors) return;
    findings->push_back({FindingLevel::warn, "process", service,
                         fmt::format("was started with a limit of {} descriptors", limit),
                         "csh closes each possible one before it runs a launcher: every start takes longer",
                         "systemctl edit servd, with LimitNOFILE=1024:524288"});
}

} // namespace

void CheckDaemonProcess(Findings *findings) {
    // A fork of one that is not its program yet has the signals of that program already, and is none of them.
    for (const pid_t daemon : ServiceDaemonsAmong(ReadProcesses())) {
        if (!WouldEndBy(daemon, SIGPIPE)) continue;
        findings->push_back({FindingLevel::warn, "process", fmt::format("process {}", daemon),
                             "is a service daemon that neither blocks nor ignores SIGPIPE",
                             "it ends as soon as a client goes away while it is answered",
                             "systemctl edit servd, with IgnoreSIGPIPE=yes"});
    }
}

void CheckChildren(const std::vector<ServiceView> &views, Findings *findings) {
    const auto isKnown = [&](pid_t process) {
        return std::any_of(views.begin(), views.end(),
                           [&](const ServiceView &view) { return view.process.process == process; });
    };
    // One that has left no hint may have any of them.
    const bool lacksHint = std::any_of(views.begin(), views.end(), [](const ServiceView &view) {
        return view.service.status.dwCurrentState != SERVICE_STOPPED && view.process.process == 0;
    });
    for (const ProcessAndParent &one : ReadProcesses()) {
        if (one.parent > 1 && !lacksHint && IsServiceDaemon(one.parent) && !isKnown(one.process)) {
            CheckChild(one.process, findings);
        }
    }
    for (const ServiceView &view : views) {
        if (view.process.process == 0 || view.process.isGone) continue;
        const std::size_t before = findings->size();
        CheckServiceLimit(view.process.process, view.service.name, findings);
        if (findings->size() != before) return; // the same for all of them
    }
}
