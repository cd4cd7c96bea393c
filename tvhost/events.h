// SPDX-License-Identifier: MIT
// events: what can happen to a service, as descriptors that the thread which runs it waits for.
//
// A stop is heard for good once it was asked for. Controls wait in a queue. A child's end is told by SIGCHLD, whose
// handler only writes; so is a stop by SIGTERM or SIGINT.
#pragma once

#include "tv/wintypes.h"

#include <sys/types.h>

struct Events {
    int stopAsked = -1;  // eventfds, readable once it has happened
    int childEnded = -1; // or been there before: takes are for whoever looks
    int controls = -1;
    int daemonEnded = -1; // a process descriptor; -1 where the parent process is not known
};

// Opens them and sets the handlers; once for the process. Returns false when it has no descriptors for them.
[[nodiscard]] bool OpenEvents();

[[nodiscard]] const Events &TheEvents();

void AskToStop();
[[nodiscard]] bool IsStopAsked();

// Puts a control into the queue, or takes the oldest one out of it. TakeControl returns false when there is none.
void QueueControl(DWORD control);
[[nodiscard]] bool TakeControl(DWORD *control);

// Whether a descriptor can be read, now or within some milliseconds (-1: whenever).
[[nodiscard]] bool IsReadable(int descriptor, int timeoutMs = 0);

// Waits until something has happened or a stop is asked for. Returns whether it is.
[[nodiscard]] bool AwaitOrStop(int happened);

// Makes an eventfd unreadable again.
void ClearEvent(int event);
