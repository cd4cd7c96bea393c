// SPDX-License-Identifier: MIT
// port_entry: entering the program, which the port mapper allows only where nobody else has entered it.
#include "svcapi/port_entry.h"

#include "rpc/dial.h"
#include "servd/programs.h"

#include <rpc/pmap_clnt.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

constexpr int attempts = 10;
constexpr auto attemptInterval = std::chrono::milliseconds(500);

// The port that the port mapper of this machine gives for the program; 0 for none.
std::uint16_t EnteredPort() {
    const RpcClient portMapper(DialPortMapper({htonl(INADDR_LOOPBACK)}));
    return portMapper != nullptr ? PortOfProgram(portMapper.get(), ServiceProgramNumber(), serviceProgramVersion) : 0;
}

} // namespace

std::uint32_t ServiceProgramNumber() { return ServiceProgram(getpid()); }

bool EnterPort(std::uint16_t port) {
    const std::uint32_t program = ServiceProgramNumber();
    std::uint16_t entered = 0;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0) std::this_thread::sleep_for(attemptInterval);
        (void)pmap_unset(program, serviceProgramVersion); // tells success also where it did nothing
        (void)pmap_set(program, serviceProgramVersion, IPPROTO_TCP, port);
        entered = EnteredPort();
        if (entered == port) return true;
    }
    if (entered != 0) {
        std::fprintf(stderr,
                     "tvsvc: the port mapper holds an entry of another user for program %u (0x%x); "
                     "as root: rpcinfo -d %u %u\n",
                     program, program, program, serviceProgramVersion);
    } else {
        std::fprintf(stderr, "tvsvc: the port mapper does not take program %u (0x%x)\n", program, program);
    }
    return false;
}

void RemovePort() { (void)pmap_unset(ServiceProgramNumber(), serviceProgramVersion); }
