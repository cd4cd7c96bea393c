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
constexpr int attemptsWithoutPortMapper = 3; // it may be restarting
constexpr auto attemptInterval = std::chrono::milliseconds(500);

// The port that the port mapper of this machine gives for the program; 0 for none. Returns false when there is no port
// mapper.
bool ReadEnteredPort(std::uint16_t *port) {
    const RpcClient portMapper(DialPortMapper({htonl(INADDR_LOOPBACK)}));
    *port = 0;
    if (portMapper == nullptr) return false;
    *port = PortOfProgram(portMapper.get(), ServiceProgramNumber(), serviceProgramVersion);
    return true;
}

} // namespace

std::uint32_t ServiceProgramNumber() { return ServiceProgram(getpid()); }

bool EnterPort(std::uint16_t port) {
    const std::uint32_t program = ServiceProgramNumber();
    std::uint16_t entered = 0;
    bool answered = false;
    for (int attempt = 0; attempt < (answered ? attempts : attemptsWithoutPortMapper); ++attempt) {
        if (attempt > 0) std::this_thread::sleep_for(attemptInterval);
        (void)pmap_unset(program, serviceProgramVersion); // tells success also where it did nothing
        (void)pmap_set(program, serviceProgramVersion, IPPROTO_TCP, port);
        answered = ReadEnteredPort(&entered) || answered;
        if (answered && entered == port) return true;
    }
    if (!answered) return false; // nor is there a daemon then, and the program is probably run by hand
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
