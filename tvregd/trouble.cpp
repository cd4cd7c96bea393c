// SPDX-License-Identifier: MIT
// trouble: what is told of a database that fails, and when.
#include "tvregd/trouble.h"

#include "util/printable.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <string>

namespace {

constexpr std::uint64_t minute = 600'000'000; // in steps of 100 ns

// A pipe that can take anything takes PIPE_BUF bytes at once.
void Tell(std::string line) {
    pollfd reader = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&reader, 1, 0) != 1 || (reader.revents & POLLOUT) == 0) return;
    if (line.size() >= PIPE_BUF) line.resize(PIPE_BUF - 1);
    line += '\n';
    (void)!write(STDERR_FILENO, line.data(), line.size()); // there is nobody else to tell
}

} // namespace

void TellTrouble(Trouble &trouble, const char *what, const std::exception &failure, std::uint64_t now) {
    if (trouble.isTold || now < trouble.quietUntil) return;
    trouble.isTold = true;
    trouble.quietUntil = now + minute;
    Tell("tvregd: " + std::string(what) + ": " + Printable(failure.what()));
}

void TellTroubleIsOver(Trouble &trouble) {
    if (!trouble.isTold) return;
    trouble.isTold = false;
    Tell("tvregd: the database can be written again");
}
