// SPDX-License-Identifier: MIT
// child_signals: services start with the signals that the daemon itself was started with.
#pragma once

#include <signal.h>

// Those that the daemon catches, all of them to end.
inline constexpr int caughtSignals[] = {SIGILL, SIGFPE, SIGSEGV, SIGTERM, SIGINT};

// Blocks SIGPIPE in the calling thread and remembers the signal mask before that. Its disposition stays the default, so
// that nothing is inherited. Main thread, once, before any other thread and before the first call that may send.
void BlockBrokenPipeSignal();

// In a forked child that is about to execute a program: sets the signals that the daemon catches back to their default
// action, then restores the signal mask of the program's start. To be called with all signals blocked, so that none of
// the daemon's handlers can run in the child. Async-signal-safe.
void RestoreSignalsInChild();
