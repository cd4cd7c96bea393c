// SPDX-License-Identifier: MIT
// leftovers: the port mapper's list against the kernel's.
//
// A service process is a child of the daemon that has started it, for as long as that one lives.
#include "tvsc/leftovers.h"

#include "servd/programs.h"
#include "svcapi/process_stat.h"
#include "tvhost/process_tree.h"
#include "tvsc/end_process.h"
#include "tvsc/json_output.h"
#include "tvsc/output_format.h"
#include "tvsc/port_mapper.h"
#include "tvsc/report.h"
#include "tvsc/table.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::uint32_t mostProcesses = 1u << 22; // the kernel gives no higher process id

RegisteredService LookAt(pid_t process, const std::string &owner) {
    ProcessStat stat;
    const bool isAlive = ReadProcessStat(process, &stat) && stat.state != 'Z';
    return {process, isAlive, isAlive && !IsServiceDaemon(stat.parent), owner};
}

void End(Session &session, const RegisteredService &service) {
    const std::string name = fmt::format("process {}", service.process);
    const TreeProcess process = {service.process, StartOfProcess(service.process), false};
    if (session.options.dryRun) return Done(session, name, "leftovers", "would be ended");
    if (EndProcess(process, session.options.waitTimeoutSec)) return Done(session, name, "leftovers", "ended");
    Failed(session, name, "leftovers", ERROR_ACCESS_DENIED, "still there");
}

} // namespace

bool IsServiceDaemon(pid_t process) { return NameOfProcess(process) == "servd"; }

bool ListRegisteredServices(std::vector<RegisteredService> *services) {
    const std::optional<std::vector<Registration>> all = ReadRegistrations({htonl(INADDR_LOOPBACK)});
    if (!all) return false;
    for (const Registration &one : *all) {
        if (one.program <= SERVDAEMONPROG || one.program - SERVDAEMONPROG > mostProcesses) continue;
        const auto process = static_cast<pid_t>(one.program - SERVDAEMONPROG);
        const auto isSame = [&](const RegisteredService &service) { return service.process == process; };
        if (std::none_of(services->begin(), services->end(), isSame)) services->push_back(LookAt(process, one.owner));
    }
    return true;
}

int RunLeftovers(const Options &options, bool end) {
    Session session;
    session.options = options;
    std::vector<RegisteredService> services;
    if (!ListRegisteredServices(&services)) {
        Failed(session, "rpcbind", "leftovers", RPC_S_SERVER_UNAVAILABLE, "the port mapper does not answer");
        return Finish(session);
    }
    std::erase_if(services, [](const RegisteredService &service) { return !service.isLeftOver; });
    if (end) {
        for (const RegisteredService &service : services) {
            End(session, service);
        }
        return Finish(session);
    }
    if (options.json) {
        PrintLeftoversJson(options, services);
        return EXIT_DONE;
    }
    std::vector<std::vector<std::string>> rows = {{"PID", "PROGRAM"}};
    for (const RegisteredService &service : services) {
        rows.push_back({std::to_string(service.process), NameOfProcess(service.process)});
    }
    if (!services.empty()) PrintTable(rows);
    if (!ShowsLegend()) return EXIT_DONE;
    fmt::print("{} service process{} of an earlier daemon.{}\n", services.size(), services.size() == 1 ? "" : "es",
               services.empty() ? "" : " To end: tvsc leftovers --end");
    return EXIT_DONE;
}
