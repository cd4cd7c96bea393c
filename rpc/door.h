// SPDX-License-Identifier: MIT
// door: accepted connections that never block the server loop.
//
// libtirpc keeps the listener, registration, svc_run, authentication and dispatch; the door takes over what lies
// beneath: accepting, assembling requests, sending replies.
#pragma once

#include "rpc/limits.h"

#include <netinet/in.h>
#include <rpc/rpc.h>
#include <signal.h>

#include <cstddef>
#include <cstdint>

// Whether a peer may come in; `local` is this end's address of its connection. May be null: everyone may.
using DoorAdmits = bool (*)(const sockaddr_in &peer, const sockaddr_in &local);

// A DoorAdmits: only this machine may. A peer is on it when it comes from the loopback network, or from the address
// that it reached us at: no other machine can send from an address of ours.
[[nodiscard]] bool IsLocalPeer(const sockaddr_in &peer, const sockaddr_in &local);

// Where the server waits for requests: in a loop, which is ServeNextRequests or svc_run, or inside the door, which
// spares two system calls a request. svc_run then hands over to the door at the first request and does not get its turn
// again: for servers that have no other transport and no end of their own.
enum class DoorWait { InLoop, Inside };

// When the turn function is called.
enum class DoorMoment {
    MoreToServe, // another request may have come
    Idle,        // none has: all replies that are held are to go now, or after a wait
    TooMuchHeld  // replies are held of too many bytes: all of them are to go now
};

// Called between any two requests, and when none is left only when all that has come has been read: for work that
// several requests share, such as bringing what they wrote onto the disk. Returns, for DoorMoment::Idle, how many
// microseconds to wait for another request before the next call; 0 when no reply is held any more.
using DoorTurn = int (*)(DoorMoment moment);

// Puts the door in front of a listening transport that svctcp_create made. From then on svc_run hands over requests
// only when they are whole, replies never block, and the bounds of limits.h hold; the dispatcher sees an
// ordinary SVCXPRT, whose xp_rtaddr is the peer of the present request. To be called once in a process, before svc_run.
// Returns false when a descriptor cannot be had; the transport is then as before.
//   turn          may be null
//   requestBytes  of one request at most; a longer one costs its connection
[[nodiscard]] bool OpenDoor(SVCXPRT *listener, DoorAdmits admits = nullptr, DoorWait wait = DoorWait::InLoop,
                            DoorTurn turn = nullptr, std::size_t requestBytes = maxRequestBytes);

// Has descriptors that the process keeps beside the connections, and can do without, counted together with these: as
// long as there are any, they make room near the descriptor limit, which is taken as it is now. To be called once,
// after OpenDoor.
//   kept    how many there are
//   giveUp  closes one; called only when there are any
void ShareDescriptors(std::size_t (*kept)(), void (*giveUp)());

// Has those given up that are too many by now. To be called when one has been added.
void GiveUpWhatIsTooMany();

// The two ends of the connection whose request is in hand: whose socket the peer's is can be asked of the kernel with
// them (peer_owner.h). Returns false when the connection has no address any more.
[[nodiscard]] bool AddressesOfRequest(sockaddr_in *peer, sockaddr_in *local);

// Codes what is answered in place of a reply, out of a number.
using DoorSubstitute = bool_t (*)(XDR *xdrs, std::uint32_t *number);

// Holds the reply of the request in hand back until ReleaseReplies, and with it all later ones of its connection: a
// peer gets its answers in the order of its requests. To be called before the reply is sent, which is encoded then and
// there; other connections are served meanwhile. Where replies are held the loop does not wait before the turn function
// has been told that no request is left.
//   substitute  for ReplaceReplies; null: the reply stays what it is
void HoldReply(DoorSubstitute substitute);

// Sends all replies held.
void ReleaseReplies();

// How many peers have had held replies in the last release or replacement and are still there, but have sent no request
// since: those who are likely to ask again at once.
[[nodiscard]] std::size_t PeersAwaited();

// Sends what each substitute makes of the number in place of the replies held.
void ReplaceReplies(std::uint32_t number);

// The body of a loop around a DoorWait::InLoop door that ends some time: waits for a request and serves what has come.
//   wake          a descriptor that ends the loop when it can be read; -1 for none
//   waitingMask   the signal mask to wait with, so that a signal that is blocked otherwise ends the wait; null for the
//                 present one
//   timeoutMs     how long to wait at most; -1 for ever
// Returns false once wake can be read, true in any other case, an interrupted wait included.
[[nodiscard]] bool ServeNextRequests(int wake, const sigset_t *waitingMask = nullptr, int timeoutMs = -1);
