// SPDX-License-Identifier: MIT
// daemon_process: nobody asks the daemon who it is, for it does not tell. It is the process of its name that has the
// socket behind the registered port: others may run in containers of this machine, or be something else.
#include "tvsc/daemon_process.h"

#include "servd/programs.h"
#include "svcapi/process_stat.h"
#include "tvsc/leftovers.h"
#include "tvsc/liveness.h"
#include "tvsc/port_mapper.h"

#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

// Of the daemon; 0 where it is not registered.
unsigned long RegisteredPort() {
    const std::optional<std::vector<Registration>> all = ReadRegistrations({htonl(INADDR_LOOPBACK)});
    for (const Registration &one : all.value_or(std::vector<Registration>())) {
        const bool isDaemon = one.program == SERVDAEMONPROG && one.version == SERVDAEMONVERS && one.transport == "tcp";
        if (isDaemon) return std::strtoul(one.address.substr(one.address.rfind(':') + 1).c_str(), nullptr, 10);
    }
    return 0;
}

// The socket that listens at a port, as descriptors of it read in /proc; empty where there is none.
std::string SocketListeningAt(unsigned long port) {
    constexpr std::string_view listening = "0A"; // TCP_LISTEN
    std::ifstream sockets("/proc/net/tcp");
    for (std::string line; std::getline(sockets, line);) {
        std::istringstream words(line);
        std::string number, local, remote, state, skipped, inode;
        words >> number >> local >> remote >> state;
        for (int i = 0; i < 5; ++i) { // queues, timer, retransmits, user, time-out
            words >> skipped;
        }
        words >> inode;
        const bool isIt = state == listening && local.find(':') != std::string::npos &&
                          std::strtoul(local.c_str() + local.find(':') + 1, nullptr, 16) == port;
        if (isIt) return fmt::format("socket:[{}]", inode);
    }
    return "";
}

// Whether a process has a socket; nothing where this user may not look, or the process has ended meanwhile.
std::optional<bool> HasSocket(pid_t process, const std::string &socket) {
    namespace fs = std::filesystem;
    std::error_code error;
    bool seesAll = true;
    fs::directory_iterator entry(fmt::format("/proc/{}/fd", process), error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code unread; // it may be closed by now
        if (fs::read_symlink(entry->path(), unread) == socket) return true;
        seesAll = seesAll && unread != std::errc::permission_denied;
    }
    return !error && seesAll ? std::make_optional(false) : std::nullopt;
}

} // namespace

std::vector<ProcessAndParent> ReadProcesses() {
    std::vector<ProcessAndParent> processes;
    std::error_code error; // without /proc there are none
    std::filesystem::directory_iterator entry("/proc", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const auto process = static_cast<pid_t>(std::stol(name));
        ProcessStat stat;
        if (ReadProcessStat(process, &stat) && stat.state != 'Z') processes.push_back({process, stat.parent});
    }
    return processes;
}

std::vector<pid_t> ServiceDaemonsAmong(const std::vector<ProcessAndParent> &processes) {
    std::vector<pid_t> daemons;
    for (const ProcessAndParent &one : processes) {
        if (IsServiceDaemon(one.process) && !IsServiceDaemon(one.parent)) daemons.push_back(one.process);
    }
    return daemons;
}

std::optional<DaemonProcess> FindAnsweringDaemon() {
    std::vector<pid_t> daemons = ServiceDaemonsAmong(ReadProcesses());
    const std::string socket = daemons.empty() ? "" : SocketListeningAt(RegisteredPort());
    const bool isLone = daemons.size() == 1; // believed where this user cannot find out
    std::erase_if(daemons, [&](pid_t process) {
        const std::optional<bool> hasPort = socket.empty() ? std::nullopt : HasSocket(process, socket);
        return !hasPort.value_or(isLone);
    });
    const std::uint64_t startTicks = daemons.size() == 1 ? StartOfProcess(daemons.front()) : 0;
    if (startTicks == 0) return std::nullopt;
    return DaemonProcess{daemons.front(), std::max<std::int64_t>(MsSinceBoot() - MsOfTicks(startTicks), 0)};
}
