// SPDX-License-Identifier: MIT
// launch: fork, the child's report, and the bounded wait for it.
#include "util/launch.h"

#include "util/monotonic_ms.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace {

// What the child tells. The text lies in memory that both have at the same address.
struct Report {
    const char *step;
    int error;
};

[[noreturn]] void RunChild(const char *(*become)(const void *plan), const void *plan, int pipe) {
    Report report = {"its process group", 0};
    if (setpgid(0, 0) == 0) report.step = become(plan);
    report.error = errno;
    (void)!write(pipe, &report, sizeof report); // nobody else could be told
    _exit(1);
}

// Waits for the report or the end of the pipe. False when neither came in time.
bool AwaitPipe(int pipe, int limitMs) {
    const std::int64_t end = MonotonicMs() + limitMs;
    pollfd waiting = {pipe, POLLIN, 0};
    for (;;) {
        const std::int64_t leftMs = end - MonotonicMs();
        const int ready = poll(&waiting, 1, leftMs > 0 ? static_cast<int>(leftMs) : 0);
        if (ready > 0) return true;
        if (ready == 0 && leftMs <= 0) return false;
    }
}

Launched Outcome(pid_t child, int pipe, int limitMs) {
    if (!AwaitPipe(pipe, limitMs)) return {child, "its process does not go on", ETIMEDOUT};
    Report report = {};
    const bool reported = read(pipe, &report, sizeof report) == sizeof report;
    return reported ? Launched{child, report.step, report.error} : Launched{child, nullptr, 0};
}

} // namespace

Launched LaunchChild(const char *(*become)(const void *plan), const void *plan, int (&pipeEnds)[2], int limitMs,
                     ChildOnItsWay *onItsWay) {
    if (pipeEnds[0] < 0 && pipe2(pipeEnds, O_CLOEXEC) != 0) return {0, "no pipe", errno};
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child == 0) RunChild(become, plan, pipeEnds[1]);
    const int error = errno;
    if (child > 0) (void)close(pipeEnds[1]);
    if (child > 0 && onItsWay != nullptr) { // before any handler can run
        onItsWay->pipe = pipeEnds[0];
        onItsWay->process = child;
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child < 0) return {0, "no process", error};

    const Launched launched = Outcome(child, pipeEnds[0], limitMs);
    if (onItsWay != nullptr) onItsWay->process = 0;
    (void)close(pipeEnds[0]);
    pipeEnds[0] = pipeEnds[1] = -1;
    if (launched.step != nullptr) (void)kill(child, SIGKILL); // it may be halted even behind its report
    return launched;
}

void KillOnItsWay(const ChildOnItsWay &child) {
    const pid_t process = child.process;
    if (process <= 0) return;
    pollfd pipe = {child.pipe, POLLIN, 0};
    const bool isProgram = poll(&pipe, 1, 0) > 0 && (pipe.revents & POLLIN) == 0; // the end, and no report before it
    if (!isProgram) (void)kill(process, SIGKILL);
}
