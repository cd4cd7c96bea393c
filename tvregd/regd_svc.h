// SPDX-License-Identifier: MIT
// regd_svc: the registry as an ONC RPC service: program 0x3003003C version 2 over TCP, records of registry/regd_xdr.h.
#pragma once

#include "tvregd/operations.h"

#include <rpc/rpc.h>

// Makes the listening transport and registers it with the port mapper; requests are then served out of the registry by
// whatever loop the caller runs over svc_pollfd.
//   allowRemote  false: connections from other machines are closed at once
// Returns false after a text on stderr. One service for each process.
[[nodiscard]] bool StartService(Registry &registry, bool allowRemote);

// Commits what is not committed yet, answers those who wait for it, and does a piece of the work that nobody waits for.
// To be called whenever the loop has nothing more to serve, and before the registry is closed.
// Returns how long the loop may wait before it calls again, in milliseconds; -1: for ever.
int FinishTurn();

// Takes the program out of the port mapper. For the end of the process: when that takes more than five seconds, the
// entry stays and the process exits with status 0.
void StopService();
