// SPDX-License-Identifier: MIT
// peer_owner: which user a connection within this machine comes from.
//
// The kernel knows who made the socket at the other end; nothing that the peer says of itself is looked at.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

enum class PeerOwner {
    Known,   // a process of that user holds the socket
    Nobody,  // no process of this network namespace does: another machine or container, or it has closed already
    Unasked, // the kernel does not tell
};

// The user who made the socket at the other end of an accepted connection. Users whom this user namespace does not know
// all look the same (the overflow id, usually 65534).
//   peer, local  the two addresses of the connection, as seen from this end, which must be open
//   owner        set where the answer is Known
[[nodiscard]] PeerOwner FindPeerOwner(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner);

// The two ways in which it asks. The first costs the same whatever else is connected; the second reads the table of all
// connections and is for kernels without the first.
[[nodiscard]] PeerOwner AskSocketDiagnosis(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner);
[[nodiscard]] PeerOwner AskConnectionTable(const sockaddr_in &peer, const sockaddr_in &local, uid_t *owner);
