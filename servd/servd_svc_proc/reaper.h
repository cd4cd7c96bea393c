// SPDX-License-Identifier: MIT
// reaper: the ends of children, which stay in the process table until somebody has taken them.
//
// How a service ends is of no interest here: that it has ended shows at its deadline or at the next control.
#pragma once

#include <sys/types.h>

// Has a thread wait for a child's end. Where no thread can be had, the end is taken by a later TakeLeftEnds.
void HaveEndTaken(pid_t child);

// Takes the end of a child that has just been killed. Blocks for a moment at most; a child that the kernel holds on to
// is left to a later TakeLeftEnds.
void TakeEndOfKilled(pid_t child);

// Takes the ends that were left, of children that have ended by now. To be called every now and then.
void TakeLeftEnds();

// Thread body: waits for a process to end and forgets how it did. The argument carries the process id.
void *WaitForService(void *pid);
