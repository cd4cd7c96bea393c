// SPDX-License-Identifier: MIT
// launch: a child process that becomes another program, or tells what it could not do.
//
// The child leads a process group of its own, so that a signal to its group meets what it has started and nobody else.
// It tells of a failure through a pipe that its exec closes. It may be halted on the way by whoever may signal it:
// the wait for it is bounded, and no signal is blocked in the parent meanwhile.
#pragma once

#include <sys/types.h>

#include <atomic>

struct Launched {
    pid_t child = 0;            // 0 when there is none
    const char *step = nullptr; // what failed, for people; null when the child has become its program
    int error = 0;              // errno of that step; ETIMEDOUT when the child never told
};

// Forks, and calls become(plan) in the child.
//   become    takes the child from there to its program. It is entered with all signals blocked, because the handlers
//             and the mask are still the parent's, and makes system calls only: no allocation, no locks. It returns
//             only when a step failed: what it was, with errno.
//   pipeEnds  the pipe between the two: -1 and -1, or the ends that an earlier call left. Where no child could be
//             forked it stays open, otherwise it is closed. Close-on-exec.
//   limitMs   how long the child may take; then it is killed
//   onItsWay  holds the child's process id as long as the call waits for it, otherwise 0; may be null. A handler that
//             ends the process kills it: halted, it would hold on to the process's sockets.
// A child that failed is killed and left to the caller, who waits for it as for any other. Blocks for limitMs at most.
// Thread: reentrant with a pipe of its own.
[[nodiscard]] Launched LaunchChild(const char *(*become)(const void *plan), const void *plan, int (&pipeEnds)[2],
                                   int limitMs, std::atomic<pid_t> *onItsWay);

// The same with a typed plan.
template <auto Become, typename Plan>
[[nodiscard]] Launched Launch(const Plan &plan, int (&pipeEnds)[2], int limitMs,
                              std::atomic<pid_t> *onItsWay = nullptr) {
    return LaunchChild([](const void *opaque) { return Become(*static_cast<const Plan *>(opaque)); }, &plan, pipeEnds,
                       limitMs, onItsWay);
}
