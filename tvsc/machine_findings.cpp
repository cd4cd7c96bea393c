// SPDX-License-Identifier: MIT
// machine_findings: what the daemon needs of its machine.
#include "rpc/dial.h"
#include "servd/programs.h"
#include "tvsc/findings.h"
#include "tvsc/leftovers.h"

#include <fmt/format.h>
#include <ifaddrs.h>
#include <unistd.h>

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

void CheckEntries(Findings *findings) {
    std::vector<RegisteredService> services;
    if (!ListRegisteredServices(&services)) return; // told above
    for (const RegisteredService &service : services) {
        const std::uint32_t program = ServiceProgram(service.process);
        if (!service.isAlive) {
            findings->push_back({FindingLevel::warn, "rpc", fmt::format("program {}", program),
                                 fmt::format("is registered for process {}, which is gone", service.process),
                                 "a service of another user that gets this process id cannot register (1053)",
                                 fmt::format("rpcinfo -d {} 1", program)});
        } else if (service.isLeftOver) {
            findings->push_back({FindingLevel::warn, "process", fmt::format("process {}", service.process),
                                 "is a service of an earlier daemon",
                                 "the present one does not know it and starts the same service again",
                                 "tvsc leftovers --end"});
        }
    }
}

} // namespace

void CheckMachine(Findings *findings) {
    CheckFiles(findings);
    CheckHostName(findings);
    CheckEntries(findings);
}
