// SPDX-License-Identifier: MIT
// daemon_rpcinfo: what the port mapper of a host tells of the two daemons.
#include "registry/regd_xdr.h"
#include "rpc/dial.h"
#include "servd/programs.h"
#include "tvsc/daemon.h"
#include "tvsc/json_output.h"
#include "tvsc/report.h"
#include "tvsc/table.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

const char *DaemonOf(const Registration &entry) {
    return entry.program == SERVDAEMONPROG ? "servd" : entry.program == REGDAEMONPROG ? "tvregd" : nullptr;
}

} // namespace

int RunDaemonRpcInfo(const Options &options) {
    Session session;
    session.options = options;
    in_addr address = {};
    std::optional<std::vector<Registration>> all;
    if (ResolveHost(options.host.c_str(), &address)) all = ReadRegistrations(address);
    if (!all) {
        Failed(session, options.host, "daemon rpcinfo", RPC_S_SERVER_UNAVAILABLE, "the port mapper does not answer");
        return Finish(session);
    }
    std::erase_if(*all, [](const Registration &entry) { return DaemonOf(entry) == nullptr; });
    if (options.json) {
        PrintRegistrationsJson(options, *all, DaemonOf);
    } else {
        std::vector<std::vector<std::string>> rows = {
            {"PROGRAM", "VERSION", "TRANSPORT", "ADDRESS", "OWNER", "DAEMON"}};
        for (const Registration &entry : *all) {
            rows.push_back({fmt::format("{} ({:#x})", entry.program, entry.program), std::to_string(entry.version),
                            entry.transport, entry.address, entry.owner, DaemonOf(entry)});
        }
        if (!all->empty()) PrintTable(rows);
    }
    const bool isThere = std::any_of(all->begin(), all->end(),
                                     [](const Registration &entry) { return entry.program == SERVDAEMONPROG; });
    if (!isThere) fmt::print(stderr, "tvsc: servd is not registered at the port mapper of {}\n", options.host);
    return isThere ? EXIT_DONE : EXIT_UNREACHABLE;
}
