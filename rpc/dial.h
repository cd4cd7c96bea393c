// SPDX-License-Identifier: MIT
// dial: reaching a program on a host, every wait bounded.
//
// What clnt_create(host, program, version, "tcp") asks on the wire, without its cache, its unbounded waits and its
// inheritable sockets: the host's address, the port mapper for the program's port (GETPORT, RFC 1833 section 3), then
// the program itself. The client handles made here are used with clnt_call, clnt_control (CLGET_FD, CLGET_SERVER_ADDR)
// and clnt_destroy like any other; descriptors are close-on-exec, and no call raises SIGPIPE.
//
// A call's time-out holds for the whole call. A peer that has sent nothing by then is a time-out (RPC_TIMEDOUT) and
// keeps its connection, so that the call can be repeated; a peer that has sent bytes but no whole answer counts as lost
// (RPC_CANTRECV): its connection is shut down and every later call on it fails at once.
// Thread: reentrant; one handle serves one call at a time.
#pragma once

#include "rpc/limits.h"
#include "util/guard.h"

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <cstdint>

// Finds the IPv4 address of a host; that of "localhost" is known without a look. Returns false when the name is
// unknown. May block for the resolver's time-outs.
[[nodiscard]] bool ResolveHost(const char *host, in_addr *address);

// The functions below end after `budgetMs` at the latest, whatever the peers do; within it each wait keeps its own
// bound (limits.h). A budget that is used up, negative ones included, fails at once.

// Connects to a port of a host. Returns a client handle for program and version, null when nothing accepts in time;
// errno tells why then (ECONNREFUSED: nobody listens there).
[[nodiscard]] CLIENT *DialPort(in_addr address, std::uint16_t port, std::uint32_t program, std::uint32_t version,
                               int budgetMs = connectTimeoutMs);

// Connects to the port mapper of a host: PortOfProgram asks over the handle. Null when it cannot be reached.
[[nodiscard]] CLIENT *DialPortMapper(in_addr address, int budgetMs = connectTimeoutMs);

// Connects to the port mapper of this machine such that it knows who asks, for what it lets nobody else do: over its
// local socket, which tells it the user id, and where that is not to be seen, as in a container, over the loopback
// interface, from a port that only root can have. The handle is one for RPCBPROG, RPCBVERS (RFC 1833 section 2). Null
// when it cannot be reached.
[[nodiscard]] CLIENT *DialOwnPortMapper(int budgetMs = connectTimeoutMs);

// Asks a port mapper for the TCP port of a program. Returns 0 when the program is not registered or no answer came in
// time.
[[nodiscard]] std::uint16_t PortOfProgram(CLIENT *portMapper, std::uint32_t program, std::uint32_t version,
                                          int budgetMs = portMapperTimeoutMs);

// All of it: port mapper, then the program. Null when any step fails.
[[nodiscard]] CLIENT *DialProgram(in_addr address, std::uint32_t program, std::uint32_t version,
                                  int budgetMs = dialTimeoutMs);

// The same after resolving the host's name, which no budget bounds.
[[nodiscard]] CLIENT *DialHost(const char *host, std::uint32_t program, std::uint32_t version);

// Bounds what the peer of a handle made here may send in one reply; without it that is maxReplyBytes. A peer that sends
// more counts as lost. Returns the handle, null for null.
CLIENT *WithReplyLimit(CLIENT *client, std::size_t bytes);

// Several calls on their way over one handle, made here, instead of one after the other: each is sent without waiting
// for an answer, and the answers are taken in the order of the calls. Between the first of them and the last answer the
// handle serves no other call. A peer that answers late or in another order counts as lost (RPC_CANTRECV), and whatever
// is still on its way with it. The caller bounds what is on its way: a peer that cannot get rid of its answers reads no
// more calls.
//   callsAgo  how many calls were sent behind the one whose answer is next
[[nodiscard]] clnt_stat SendCall(CLIENT *client, rpcproc_t procedure, xdrproc_t codeArguments, void *arguments,
                                 timeval timeout);
[[nodiscard]] clnt_stat ReceiveAnswer(CLIENT *client, std::uint32_t callsAgo, xdrproc_t codeResults, void *results,
                                      timeval timeout);

// clnt_destroy is a macro; a handle held by RpcClient is destroyed at the end of its scope.
inline void DestroyClient(CLIENT *client) { clnt_destroy(client); }
using RpcClient = std::unique_ptr<CLIENT, Calls<&DestroyClient>>;
