// SPDX-License-Identifier: MIT
// launcher: who started this process.
//
// What is certain:
//   - A service process is the daemon's child. The daemon finds a process under the process id of its own fork, so
//     launchers, shells, env, setpriv and the like must become the program by exec, and the parent stays the same.
//   - The daemon is thus the parent, or, when it has ended meanwhile, gone. It is the parent's user who may hand over a
//     start or a control; root may as well. The kernel tells the user of every connection within the machine.
// What is not: the name of the service. Nothing in a process tells for which service it was started, since environment,
// image and launcher may be those of many; it is the start request that says so, and the first one binds a program of
// one service (dispatcher.cpp).
#pragma once

#include <netinet/in.h>

// Notes who the launcher is. To be called before the first connection comes.
void NoteLauncher();

// Whether a connection comes from root or from the launcher's user; for OpenDoor. Where the kernel does not tell, it
// does not, and a line on stderr says so once.
[[nodiscard]] bool IsFromLauncher(const sockaddr_in &peer, const sockaddr_in &local);
