// SPDX-License-Identifier: MIT
// main: runs one command and ends so that nothing is lost.
//
// An interrupt ends the program through exit, so that open handles go back to the daemon, which would keep them for
// ever.
#include "tvsc/command_line.h"
#include "tvsc/exit_status.h"
#include "util/printable.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <exception>
#include <thread>

namespace {

std::atomic<bool> interrupted;

bool IsIgnored(int signal) {
    struct sigaction present = {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

// Ends the program through exit on an interrupt, in a thread of its own: handles are given back there. For their sake a
// closed terminal or pipe must not end it at once either.
void ExitOnInterrupt() {
    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    if (!IsIgnored(SIGHUP)) sigaddset(&interrupts, SIGHUP);
    (void)signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &interrupts, nullptr);
    std::thread([interrupts] {
        int signal = 0;
        while (sigwait(&interrupts, &signal) != 0) {
        }
        interrupted = true;
        std::fputs("tvsc: interrupted; what was asked for may still be carried out\n", stderr);
        std::exit(signal == SIGINT ? EXIT_INTERRUPTED : 128 + signal);
    }).detach();
}

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
        if (!interrupted && !outputFailed) std::fprintf(stderr, "tvsc: %s\n", Printable(error.what()).c_str());
    }
    // Giving the handles back fails what is under way here; the interrupt's own status is the one that counts.
    while (interrupted) {
        pause();
    }
    return StatusOfOutput(status);
}
