// SPDX-License-Identifier: MIT
// restart: whether a program that has ended is started again, and when.
//
// A service says so in one of two ways. The parameters (AppRestart) have a delay that doubles with each restart up to a
// limit, and give up after so many restarts in a row. The failure actions of the service's key list what to do at the
// first, the second, ... failure, the last one standing for all that follow. A run that was long enough makes the next
// failure the first one again. Nothing here looks at a clock.
#pragma once

#include "tvhost/failure_actions.h"
#include "tvhost/parameters.h"

#include <cstdint>

enum class AfterEnd {
    stop,       // it ends with the program's codes
    restart,    // after the delay
    runCommand, // the failure command; then it ends with the program's codes
    giveUp      // it has been started too often in a row
};

struct RestartDecision {
    AfterEnd next = AfterEnd::stop;
    DWORD delayMs = 0;
    std::string reason; // for people, where there is something to tell
};

struct RestartHistory {
    DWORD restarts = 0; // all
    DWORD inARow = 0;   // since the last good run
};

// What to do after a program has ended that nobody had asked to.
//   failed   it ended with another status than 0, by a signal, or could not be started
//   history  counts the restart that is decided on
//   ranMs    how long the program ran
[[nodiscard]] RestartDecision DecideAfterEnd(const HostParameters &parameters, const FailureActions &failureActions,
                                             bool failed, std::uint64_t ranMs, RestartHistory *history);
