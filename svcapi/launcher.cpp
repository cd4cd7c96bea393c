// SPDX-License-Identifier: MIT
// launcher: looks at the parent process.
#include "svcapi/launcher.h"

#include "svcapi/peer_owner.h"
#include "util/guard.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

uid_t launcher; // the user who may hand over starts and controls, besides root

using File = std::unique_ptr<FILE, Calls<&std::fclose>>;

// The effective user of a process: what its sockets are made as.
bool FindUserOf(pid_t process, uid_t *user) {
    const File status(std::fopen(("/proc/" + std::to_string(process) + "/status").c_str(), "re"));
    if (status == nullptr) return false;
    char line[256];
    while (std::fgets(line, sizeof line, status.get()) != nullptr) {
        if (std::sscanf(line, "Uid: %*u %u", user) == 1) return true;
    }
    return false;
}

} // namespace

void NoteLauncher() {
    // A parent that cannot be looked at is another user's: root's, who may anyway.
    if (!FindUserOf(getppid(), &launcher)) launcher = getuid();
}

bool IsFromLauncher(const sockaddr_in &peer, const sockaddr_in &local) {
    static bool told = false;
    uid_t user = 0;
    const PeerOwner found = FindPeerOwner(peer, local, &user);
    if (found == PeerOwner::Unasked && !told) {
        std::fputs("tvsvc: the kernel does not tell whose connections are: no start can be taken\n", stderr);
        told = true;
    }
    return found == PeerOwner::Known && (user == 0 || user == launcher);
}
