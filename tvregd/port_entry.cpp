// SPDX-License-Identifier: MIT
// port_entry: looks again and again whether the port mapper still knows the daemon.
#include "tvregd/port_entry.h"

#include "util/guard.h"

#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <rpc/rpcb_prot.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

using std::chrono::milliseconds;
constexpr milliseconds firstPause{50}, longestPause{10'000};
constexpr milliseconds lasting{10'000}; // a connection that held so long counts as one to a port mapper that stays

struct Kept {
    std::mutex mutex; // held while the entry is made
    bool ends = false;
    std::uint32_t program = 0, version = 0;
    std::uint16_t port = 0;
};
Kept kept;

bool ConnectTo(int descriptor, const sockaddr *address, socklen_t bytes) {
    return descriptor >= 0 && connect(descriptor, address, bytes) == 0;
}

// The ways on which the library enters a program: the local socket, and the loopback address where that is not visible.
// Returns -1 where nobody answers.
int ConnectToPortMapper() {
    sockaddr_un local = {};
    local.sun_family = AF_UNIX;
    std::strncpy(local.sun_path, _PATH_RPCBINDSOCK, sizeof local.sun_path - 1);
    int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (ConnectTo(descriptor, reinterpret_cast<const sockaddr *>(&local), sizeof local)) return descriptor;
    (void)close(descriptor);
    sockaddr_in loopback = {};
    loopback.sin_family = AF_INET;
    loopback.sin_port = htons(PMAPPORT);
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (ConnectTo(descriptor, reinterpret_cast<const sockaddr *>(&loopback), sizeof loopback)) return descriptor;
    (void)close(descriptor);
    return -1;
}

// Nothing is ever asked over the connection: whatever can be read is its end.
void WaitForEnd(int descriptor) {
    char byte = 0;
    (void)recv(descriptor, &byte, 1, 0);
}

// An entry that is there already is left as it is, also that of another daemon which has come in between.
void Enter() {
    const std::lock_guard lock(kept.mutex);
    if (!kept.ends) (void)pmap_set(kept.program, kept.version, IPPROTO_TCP, kept.port);
}

void Keep() {
    using Clock = std::chrono::steady_clock;
    for (milliseconds pause = firstPause;; pause = std::min(pause * 2, longestPause)) {
        const Clock::time_point begin = Clock::now();
        int descriptor = ConnectToPortMapper();
        if (descriptor >= 0) {
            const DescriptorGuard guard(&descriptor);
            Enter();
            WaitForEnd(descriptor);
        }
        if (Clock::now() - begin > lasting) pause = firstPause;
        std::this_thread::sleep_for(pause);
    }
}

} // namespace

void KeepPortEntry(std::uint32_t program, std::uint32_t version, std::uint16_t port) {
    kept.program = program;
    kept.version = version;
    kept.port = port;
    std::thread(Keep).detach();
}

void StopKeepingPortEntry() {
    const std::lock_guard lock(kept.mutex);
    kept.ends = true;
}
