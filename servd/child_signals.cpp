// SPDX-License-Identifier: MIT
// child_signals: services start with the signals that the daemon itself was started with.
//
// Owns: the signal mask of program start, written once by the main thread.
#include "servd/child_signals.h"

static sigset_t maskAtStart;

void BlockBrokenPipeSignal() {
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    (void)sigprocmask(SIG_BLOCK, &brokenPipe, &maskAtStart);
}

void RestoreSignalsInChild() {
    for (const int caught : caughtSignals) {
        (void)signal(caught, SIG_DFL);
    }
    (void)sigprocmask(SIG_SETMASK, &maskAtStart, nullptr);
}
