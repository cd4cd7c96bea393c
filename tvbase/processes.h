// SPDX-License-Identifier: MIT
// processes: noticing their end.
#pragma once

#include "tvbase/objects.h"

// Looks whether a process has ended, and if so wanted has its object signalled as soon as it does. For other objects
// nothing.
// Without the lock.
void WatchProcess(const ObjectRef &object, bool untilItEnds);
