// SPDX-License-Identifier: MIT
// end_process: having a process end, first by asking.
#pragma once

#include "tvhost/process_tree.h"

// Sends SIGTERM, and SIGKILL when that has not ended it in time. Returns whether it has ended; blocks until then, for
// some seconds longer than the time-out at most. Another process that has its number by now is left alone.
[[nodiscard]] bool EndProcess(const TreeProcess &process, double timeoutSec);
