// SPDX-License-Identifier: MIT
// door: accepted connections that never block the server loop.
//
// libtirpc keeps the listener, registration, svc_run, authentication and dispatch; the door takes over what lies
// beneath: accepting, assembling requests, sending replies.
#pragma once

#include <netinet/in.h>
#include <rpc/rpc.h>

// Whether a peer may come in; `local` is this end's address of its connection. May be null: everyone may.
using DoorAdmits = bool (*)(const sockaddr_in &peer, const sockaddr_in &local);

// Where the server waits for requests: in the loop around svc_getreq_poll, which is svc_run or the program's own, or
// inside the door, which spares two system calls a request. The loop then hands over to the door at the first request
// and does not get its turn again: for servers that have no other transport and no end of their own.
enum class DoorWait { InLoop, Inside };

// Puts the door in front of a listening transport that svctcp_create made. From then on svc_run hands over requests
// only when they are whole, replies never block, and the bounds at the top of door.cpp hold; the dispatcher sees an
// ordinary SVCXPRT, whose xp_rtaddr is the peer of the present request. To be called once in a process, before svc_run.
// Returns false when a descriptor cannot be had; the transport is then as before.
[[nodiscard]] bool OpenDoor(SVCXPRT *listener, DoorAdmits admits = nullptr, DoorWait wait = DoorWait::InLoop);
