// SPDX-License-Identifier: MIT
// launcher: who started this process, and whether a start can still come from there.
//
// What is certain:
//   - A service process is the daemon's child. The daemon finds a process under the process id of its own fork, so
//     launchers, shells, env, setpriv and the like must become the program by exec, and the parent stays the same.
//   - The daemon is thus the parent, or, when it has ended meanwhile, gone. It is the parent's user who may hand over a
//     start or a control; root may as well. The kernel tells the user of every connection within the machine.
//   - The daemon serves nobody between the fork of a process and the answer to its start: a daemon that answers
//   anything
//     waits for no process.
// What is not: the name of the service. Nothing in a process tells for which service it was started, since environment,
// image and launcher may be those of many; it is the start request that says so, and the first one binds a program of
// one service (dispatcher.cpp).
#pragma once

#include "rpc/dial.h"

// Notes who the launcher is. To be called before the first connection comes.
void NoteLauncher();

// Whether a connection comes from root or from the launcher's user; for OpenDoor. Where the kernel does not tell, it
// does not, and a line on stderr says so once.
[[nodiscard]] bool IsFromLauncher(const sockaddr_in &peer, const sockaddr_in &local);

// One look at the daemon of this machine.
//   daemon  the connection, null at first; kept from one look to the next
// Returns false when it can be waiting for no process: it is not registered, its port refuses, or it answers. Blocks
// for a second while the daemon is busy, and for the waits of dial.h.
[[nodiscard]] bool MayDaemonStartProcesses(RpcClient *daemon);
