// SPDX-License-Identifier: MIT
// end_process: having processes end, first by asking.
#pragma once

#include "tvhost/process_tree.h"

// Sends SIGTERM, and SIGKILL when that has not ended it in time. Returns whether it has ended; blocks until then, for
// some seconds longer than the time-out at most. Another process that has its number by now is left alone.
[[nodiscard]] bool EndProcess(const TreeProcess &process, double timeoutSec);

// The same for processes with all that has come of them and still comes, and one time-out for all. Returns those that
// are still there.
//   processes  takes what was found on the way, too
[[nodiscard]] std::vector<TreeProcess> EndTrees(std::vector<TreeProcess> *processes, double timeoutSec);
