// SPDX-License-Identifier: MIT
// machine_findings: what the daemon needs of its machine.
#include "rpc/dial.h"
#include "servd/programs.h"
#include "svcapi/process_stat.h"
#include "tvsc/findings.h"
#include "tvsc/leftovers.h"
#include "tvsc/port_mapper.h"

#include <fmt/format.h>
#include <ifaddrs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

void CheckFiles(Findings *findings) {
    if (access("/bin/csh", X_OK) != 0) {
        findings->push_back({FindingLevel::fail, "system", "/bin/csh", "is not there", "every start fails with 3",
                             "apt-get install csh"});
    }
    for (const char *file : {"/etc/netconfig", "/etc/protocols"}) {
        if (access(file, R_OK) == 0) continue;
        findings->push_back({FindingLevel::fail, "rpc", file, "cannot be read", "no program can be reached over RPC",
                             "apt-get install libtirpc-common netbase"});
    }
    if (access("/root/.cshrc", F_OK) == 0) {
        findings->push_back({FindingLevel::info, "system", "/root/.cshrc", "is there",
                             "services of root whose image does not begin with \"#!/bin/csh -f\" read it", ""});
    }
}

// Whether an address is one of this machine's interfaces.
bool IsOwnAddress(in_addr address) {
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0) return true; // cannot be told
    bool isOwn = (ntohl(address.s_addr) >> 24) == IN_LOOPBACKNET;
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
        sockaddr_in own = {};
        std::memcpy(&own, one->ifa_addr, sizeof own);
        isOwn = isOwn || own.sin_addr.s_addr == address.s_addr;
    }
    freeifaddrs(all);
    return isOwn;
}

void CheckHostName(Findings *findings) {
    char name[256] = {};
    (void)gethostname(name, sizeof name - 1); // empty where it cannot be told
    in_addr address = {};
    if (!ResolveHost(name, &address) || !IsOwnAddress(address)) {
        findings->push_back({FindingLevel::fail, "rpc", name, "this host's name leads to no address of this machine",
                             "the daemon reaches no service process: every start fails with 1053",
                             fmt::format("echo '127.0.0.1 {}' >> /etc/hosts", name)});
        return;
    }
    CLIENT *const mapper = DialPortMapper(address);
    if (mapper == nullptr) {
        findings->push_back({FindingLevel::fail, "rpc", "rpcbind", fmt::format("does not answer at {}", name),
                             "neither daemon nor services can be found", "systemctl start rpcbind"});
        return;
    }
    clnt_destroy(mapper);
}

Finding StaleEntry(const RegisteredService &service, const std::string &further = "") {
    const std::uint32_t program = ServiceProgram(service.process);
    const std::string owner = service.owner.empty() ? "" : fmt::format(" by {}", service.owner);
    return {FindingLevel::warn,
            "rpc",
            fmt::format("program {}", program),
            fmt::format("is registered{} for process {}, which is gone{}", owner, service.process, further),
            "a service of another user that gets this process id cannot register (1053)",
            "tvsc doctor --fix-rpcbind"};
}

bool IsProcessThere(pid_t process) {
    ProcessStat stat;
    return ReadProcessStat(process, &stat) && stat.state != 'Z';
}

bool IsRegistered(const std::vector<RegisteredService> &services, pid_t process) {
    return std::any_of(services.begin(), services.end(),
                       [&](const RegisteredService &service) { return service.process == process; });
}

// Takes the entries of processes away that are still gone.
void MendEntries(const std::vector<RegisteredService> &stale, Findings *findings) {
    for (const RegisteredService &service : stale) {
        if (!IsProcessThere(service.process)) {
            RemoveRegistration(ServiceProgram(service.process), serviceProgramVersion);
        }
    }
    std::vector<RegisteredService> left;
    if (!ListRegisteredServices(&left)) return; // told before, unless it has just ended
    for (const RegisteredService &service : stale) {
        const bool isLeft = IsRegistered(left, service.process);
        Finding finding = StaleEntry(service, isLeft ? "; it could not be removed" : "; removed");
        finding.level = isLeft ? FindingLevel::warn : FindingLevel::info;
        finding.command = isLeft ? "sudo tvsc doctor --fix-rpcbind" : "";
        findings->push_back(std::move(finding));
    }
}

void CheckEntries(EntriesMending mending, Findings *findings) {
    std::vector<RegisteredService> services;
    if (!ListRegisteredServices(&services)) return; // told above
    std::vector<RegisteredService> stale;
    for (const RegisteredService &service : services) {
        if (!service.isAlive) {
            stale.push_back(service);
        } else if (service.isLeftOver) {
            findings->push_back({FindingLevel::warn, "process", fmt::format("process {}", service.process),
                                 "is a service of an earlier daemon",
                                 "the present one does not know it and starts the same service again",
                                 "tvsc leftovers --end"});
        }
    }
    if (mending == EntriesMending::done) return MendEntries(stale, findings);
    for (const RegisteredService &service : stale) {
        findings->push_back(StaleEntry(service, mending == EntriesMending::planned ? "; would be removed" : ""));
    }
}

} // namespace

void CheckMachine(EntriesMending mending, Findings *findings) {
    CheckFiles(findings);
    CheckHostName(findings);
    CheckEntries(mending, findings);
}
