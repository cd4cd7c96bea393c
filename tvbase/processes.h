// SPDX-License-Identifier: MIT
// processes: noticing their end.
#pragma once

#include "tvbase/objects.h"

#include <sys/types.h>

// Looks whether a process has ended, and if so wanted has its object signalled as soon as it does. For other objects
// nothing.
// Without the lock.
void WatchProcess(const ObjectRef &object, bool untilItEnds);

// Takes a child of this process over: its end is waited for and its exit code kept, even when all handles are closed
// before. Gives two handles for it.
[[nodiscard]] DWORD AdoptChild(pid_t id, HANDLE *handle, HANDLE *other);
