// SPDX-License-Identifier: MIT
// interrupts: one thread takes the signals.
#include "tvsc/interrupts.h"

#include "tvsc/exit_status.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<bool> interrupted;
std::atomic<bool> endsQuietly;
std::atomic<bool> isChildInFront;

bool IsIgnored(int signal) {
    struct sigaction present = {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

} // namespace

void ExitOnInterrupt() {
    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    if (!IsIgnored(SIGHUP)) sigaddset(&interrupts, SIGHUP);
    (void)signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &interrupts, nullptr);
    std::thread([interrupts] {
        int signal = 0;
        while (sigwait(&interrupts, &signal) != 0 || (signal == SIGINT && isChildInFront)) {
        }
        interrupted = true;
        if (!endsQuietly) std::fputs("tvsc: interrupted; what was asked for may still be carried out\n", stderr);
        std::exit(signal == SIGINT ? EXIT_INTERRUPTED : 128 + signal);
    }).detach();
}

void LeaveInterruptsToChild(bool isInFront) { isChildInFront = isInFront; }

void EndQuietlyWhenInterrupted() { endsQuietly = true; }

bool IsInterrupted() { return interrupted; }
