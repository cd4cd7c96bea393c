// SPDX-License-Identifier: MIT
// ending: leaving the port mapper from inside a signal handler, and ending the process there.
#pragma once

// Prepares what EndOnSignal needs, so that the handler itself allocates nothing and takes no lock, and gives the
// calling thread a stack of its own for signal handlers. Once, before any handler is installed.
void PrepareEnding();

// Installs EndOnSignal's caller for one signal: it runs on the handlers' own stack, with all signals that it is
// installed for held back.
void CatchSignal(int signalNumber, void (*handler)(int));

// Removes SERVDAEMONPROG from the port mapper and ends the process with status 0. Safe in a signal handler at any
// moment: async-signal-safe calls only, every wait bounded, well under a second in all.
[[noreturn]] void EndOnSignal();
