// SPDX-License-Identifier: MIT
// serving: registration with the port mapper, and the loop. Whatever fails is told on stderr and ends the process with
// status 1.
#pragma once

#include <rpc/rpc.h>

[[noreturn]] void Fail(const char *message);

// A transport for requests over TCP, on a port of the system's choice.
[[nodiscard]] SVCXPRT *CreateTcpTransport();
// Has the transport serve the daemon's program, and tells the port mapper.
void RegisterOverTcp(SVCXPRT *transport);
// Answers requests for the rest of the process's life.
[[noreturn]] void Serve();
