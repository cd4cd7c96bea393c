// SPDX-License-Identifier: MIT
// launch: a child process that becomes another program, or tells what it could not do.
//
// The child leads a process group of its own, so that a signal to its group meets what it has started and nobody else.
// It tells of a failure through a pipe that its exec closes. It may be halted on the way by whoever may signal it:
// the wait for it is bounded, and no signal is blocked in the parent meanwhile.
#pragma once

#include <sys/types.h>

#include <atomic>

// A child that is not its program yet, as a signal handler sees it.
struct ChildOnItsWay {
    std::atomic<pid_t> process; // 0 when there is none
    std::atomic<int> pipe;      // where it tells of a failure; its program's start closes the other end
};
static_assert(std::atomic<pid_t>::is_always_lock_free);
static_assert(std::atomic<int>::is_always_lock_free);

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
//   onItsWay  tells of the child as long as the call waits for it; may be null
// A child that failed is killed and left to the caller, who waits for it as for any other. Blocks for limitMs at most.
// Thread: reentrant with a pipe of its own.
[[nodiscard]] Launched LaunchChild(const char *(*become)(const void *plan), const void *plan, int (&pipeEnds)[2],
                                   int limitMs, ChildOnItsWay *onItsWay);

// The same with a typed plan.
template <auto Become, typename Plan>
[[nodiscard]] Launched Launch(const Plan &plan, int (&pipeEnds)[2], int limitMs, ChildOnItsWay *onItsWay = nullptr) {
    return LaunchChild([](const void *opaque) { return Become(*static_cast<const Plan *>(opaque)); }, &plan, pipeEnds,
                       limitMs, onItsWay);
}

// Kills a child that is still on its way, for a handler that ends the process: halted, the child would hold on to the
// process's sockets. A child that has become its program is left alone, also before the call that waits for it has
// noticed. Async-signal-safe.
void KillOnItsWay(const ChildOnItsWay &child);
