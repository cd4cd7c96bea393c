// SPDX-License-Identifier: MIT
// trouble: what standard error hears of a disk that fails.
//
// Such a disk fails every write, of which there may be thousands a second, and perhaps nobody reads what is said. So a
// line tells that writing has begun to fail and another that it works again, at most one such pair a minute, and a line
// for which the reader has left no room is left out: the daemon waits for nobody there. Thread: the only one.
#pragma once

#include <cstdint>
#include <exception>

struct Trouble {
    bool isTold = false;          // and not over yet
    std::uint64_t quietUntil = 0; // FILETIME
};

// Tells that something has failed for this reason.
//   what  for people: "not stored"
//   now   FILETIME
void TellTrouble(Trouble &trouble, const char *what, const std::exception &failure, std::uint64_t now);

// Tells that writing works again, where it was told that it does not.
void TellTroubleIsOver(Trouble &trouble);
