// SPDX-License-Identifier: MIT
// main: runs one command and ends so that nothing is lost.
#include "tvsc/command_line.h"
#include "tvsc/exit_status.h"
#include "tvsc/interrupts.h"
#include "util/printable.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <exception>

namespace {

int Run(int argc, char **argv) {
    int status = EXIT_USAGE;
    const std::function<int()> command = ReadCommandLine(argc, argv, &status);
    if (!command) return status;
    ExitOnInterrupt();
    return command();
}

bool HasReaderLeft() {
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}

// The exit status, looked at again once everything is written: what was printed must have arrived.
int StatusOfOutput(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
    if (HasReaderLeft()) return 128 + SIGPIPE;
    std::fputs("tvsc: standard output cannot be written\n", stderr);
    return status == EXIT_DONE ? static_cast<int>(EXIT_FAILED) : status;
}

} // namespace

int main(int argc, char **argv) {
    (void)setlocale(LC_CTYPE, ""); // else the terminal is taken to know ASCII only
    int status = EXIT_FAILED;
    try {
        status = Run(argc, argv);
    } catch (const std::exception &error) {
        const bool outputFailed = std::ferror(stdout) != 0; // told below
        if (!IsInterrupted() && !outputFailed) std::fprintf(stderr, "tvsc: %s\n", Printable(error.what()).c_str());
    }
    // Giving the handles back fails what is under way here; the interrupt's own status is the one that counts.
    while (IsInterrupted()) {
        pause();
    }
    return StatusOfOutput(status);
}
