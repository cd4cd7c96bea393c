// SPDX-License-Identifier: MIT
// process_tree: one look at /proc gives all parents; what descends from a process follows from them.
#include "tvhost/process_tree.h"

#include "svcapi/process_stat.h"
#include "util/guard.h"

#include <dirent.h>
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>

namespace {

constexpr int mostRounds = 100;

void CloseFolder(DIR *folder) { (void)closedir(folder); }
using Folder = std::unique_ptr<DIR, Calls<&CloseFolder>>;
using ProcessTable = std::map<pid_t, ProcessStat>;

ProcessTable ReadProcessTable() {
    ProcessTable table;
    const Folder folder(opendir("/proc"));
    if (folder == nullptr) return table;
    while (const dirent *entry = readdir(folder.get())) {
        const auto process = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        ProcessStat stat;
        if (process > 0 && ReadProcessStat(process, &stat)) table[process] = stat;
    }
    return table;
}

// The table may have been read while it changed; the way up ends in any case.
bool Descends(const ProcessTable &table, pid_t process, pid_t root) {
    for (std::size_t steps = 0; steps <= table.size(); ++steps) {
        const auto found = table.find(process);
        if (found == table.end()) return false;
        process = found->second.parent;
        if (process == root) return true;
    }
    return false;
}

bool IsSpared(const ProcessTable &table, pid_t process, const std::vector<pid_t> &spared) {
    return std::any_of(spared.begin(), spared.end(),
                       [&](pid_t one) { return one == process || Descends(table, process, one); });
}

std::vector<TreeProcess> DescendantsIn(const ProcessTable &table, pid_t root, const std::vector<pid_t> &spared) {
    std::vector<TreeProcess> found;
    for (const auto &[process, stat] : table) {
        if (!Descends(table, process, root) || IsSpared(table, process, spared)) continue;
        found.push_back({process, stat.startTicks, stat.state == 'Z' || stat.state == 'X'});
    }
    std::stable_sort(found.begin(), found.end(), [](const TreeProcess &left, const TreeProcess &right) {
        return left.startTicks < right.startTicks;
    });
    return found;
}

bool IsKnown(const std::vector<TreeProcess> &known, const TreeProcess &process) {
    return std::any_of(known.begin(), known.end(), [&](const TreeProcess &one) {
        return one.process == process.process && one.startTicks == process.startTicks;
    });
}

// Whether a process descends from one of those that are known, by one way up for all of them.
bool DescendsFromKnown(const ProcessTable &table, pid_t process, const std::vector<TreeProcess> &known) {
    for (std::size_t steps = 0; steps <= table.size(); ++steps) {
        const auto found = table.find(process);
        if (found == table.end()) return false;
        process = found->second.parent;
        const auto parent = table.find(process);
        if (parent != table.end() && IsKnown(known, {process, parent->second.startTicks})) return true;
    }
    return false;
}

std::uint64_t MillisecondsOf(std::uint64_t ticks) {
    return ticks * 1000 / static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
}

} // namespace

std::vector<TreeProcess> DescendantsOf(pid_t root) { return DescendantsIn(ReadProcessTable(), root, {}); }

bool AddDescendants(std::vector<TreeProcess> *processes) {
    const ProcessTable table = ReadProcessTable();
    std::vector<TreeProcess> added;
    for (const auto &[process, stat] : table) {
        const TreeProcess one = {process, stat.startTicks};
        const bool hasEnded = stat.state == 'Z' || stat.state == 'X';
        if (hasEnded || IsKnown(*processes, one) || !DescendsFromKnown(table, process, *processes)) continue;
        added.push_back(one);
    }
    std::stable_sort(added.begin(), added.end(), [](const TreeProcess &left, const TreeProcess &right) {
        return left.startTicks < right.startTicks;
    });
    processes->insert(processes->end(), added.begin(), added.end());
    return !added.empty();
}

bool IsDescendantOf(pid_t process, pid_t root) {
    ProcessStat stat;
    while (process > 1 && ReadProcessStat(process, &stat)) {
        if (stat.parent == root) return true;
        process = stat.parent;
    }
    return false;
}

void SignalProcess(const TreeProcess &process, int signal) {
    int descriptor = static_cast<int>(syscall(SYS_pidfd_open, process.process, 0)); // declared for C only
    if (descriptor < 0) return;
    const DescriptorGuard closed(&descriptor);
    if (!IsSameProcess(process.process, process.startTicks)) return;
    (void)syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0); // it may just have ended
}

std::size_t SignalDescendants(pid_t root, int signal, const std::vector<pid_t> &spared) {
    const bool untilAll = signal == SIGSTOP || signal == SIGKILL;
    std::vector<TreeProcess> signalled;
    for (int round = 0; round < (untilAll ? mostRounds : 1); ++round) {
        const std::size_t before = signalled.size();
        for (const TreeProcess &process : DescendantsIn(ReadProcessTable(), root, spared)) {
            if (process.hasEnded || IsKnown(signalled, process)) continue;
            SignalProcess(process, signal);
            signalled.push_back(process);
        }
        if (signalled.size() == before) break;
    }
    return signalled.size();
}

std::string NameOfProcess(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

TreeUsage UsageOfDescendants(pid_t root) {
    const ProcessTable table = ReadProcessTable();
    TreeUsage usage;
    std::uint64_t ticks = 0, pages = 0;
    if (const auto found = table.find(root); found != table.end()) ticks = found->second.takenTicks;
    for (const TreeProcess &process : DescendantsIn(table, root, {})) {
        const ProcessStat &stat = table.at(process.process);
        ticks += stat.cpuTicks + stat.takenTicks;
        pages += stat.memoryPages;
        if (!process.hasEnded) ++usage.processes;
    }
    usage.cpuMs = MillisecondsOf(ticks);
    usage.memoryBytes = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    return usage;
}
