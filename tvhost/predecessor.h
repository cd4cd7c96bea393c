// SPDX-License-Identifier: MIT
// predecessor: what an earlier start of the service has left running.
//
// Services outlive the daemon, and the next daemon knows nothing of them: it starts them again. The state file tells
// who was there; a process counts only as long as its start time is the one that is written there.
#pragma once

#include "tvhost/state_file.h"

#include <functional>

struct Predecessor {
    HostState state;
    bool hostLives = false;    // a tvhost
    bool programLives = false; // what it ran
    bool groupLives = false;   // anything in its control group
};

// Looks for one. Returns whether anything lives; what else a killed tvhost has left, which is an empty control group,
// is taken away.
[[nodiscard]] bool FindPredecessor(const std::string &serviceName, Predecessor *found);

// What lives, for people.
[[nodiscard]] std::string DescribePredecessor(const Predecessor &found);

// Ends it: tvhost and its program are asked to, and killed after the time given; then everything that is left is.
//   pause  waits for so many milliseconds; returns false when the wait is to be given up
// Returns whether nothing lives any more.
[[nodiscard]] bool EndPredecessor(const Predecessor &found, std::int64_t patienceMs,
                                  const std::function<bool(int milliseconds)> &pause);
