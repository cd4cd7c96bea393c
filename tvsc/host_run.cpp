// SPDX-License-Identifier: MIT
// host_run: starting processes, reading their pipes and ending those that take too long.
//
// A run is over when both of its pipes have come to their end, or when its time is: then it is asked to end, and
// killed a second later.
#include "tvsc/host_run.h"

#include "util/child_program.h"
#include "util/guard.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto killPause = std::chrono::seconds(1);
constexpr std::size_t chunkBytes = 64 * 1024;
constexpr std::size_t mostOutput = 256u * 1024 * 1024; // of one machine; one that writes more is cut off

// The processes that are under way, for the end of the program, which may come in another thread.
std::mutex livingGuard;
std::vector<pid_t> living;

void EndLiving() {
    const std::lock_guard<std::mutex> locked(livingGuard);
    for (const pid_t process : living) {
        (void)kill(process, SIGTERM); // may have ended
    }
}

bool MakePipe(int *readEnd, int *writeEnd) {
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    *readEnd = ends[0];
    *writeEnd = ends[1];
    return true;
}

int Spawn(const std::vector<std::string> &command, int output, int error, pid_t *process) {
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    (void)posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    (void)posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
    const int rc = SpawnProgram(command, &actions, process);
    (void)posix_spawn_file_actions_destroy(&actions);
    return rc;
}

void Fail(HostRun *run, const std::string &why) {
    run->error += "cannot be run: " + why + "\n";
    run->exitStatus = EXIT_FAILED;
}

void Begin(HostRun *run, double timeoutSec) {
    run->limit =
        timeoutSec > 0
            ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutSec))
            : Clock::time_point::max();
    int output = -1, error = -1;
    const bool hasPipes = MakePipe(&run->outputEnd, &output) && MakePipe(&run->errorEnd, &error);
    const DescriptorGuard outputClosed(&output), errorClosed(&error);
    const int rc = hasPipes ? Spawn(run->command, output, error, &run->process) : errno;
    if (rc != 0) {
        run->process = 0;
        return Fail(run, run->command.front() + ": " + std::strerror(rc));
    }
    const std::lock_guard<std::mutex> locked(livingGuard);
    living.push_back(run->process);
}

void CloseEnd(int *end) {
    if (*end >= 0) (void)close(*end);
    *end = -1;
}

int StatusOf(int waited) { return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited); }

// Takes the end of a run whose pipes are closed, or whose time is over.
void Finish(HostRun *run) {
    CloseEnd(&run->outputEnd);
    CloseEnd(&run->errorEnd);
    if (run->process == 0) return;
    int waited = 0;
    pid_t ended = 0;
    if (run->timedOut) {
        (void)kill(run->process, SIGTERM);
        const Clock::time_point limit = Clock::now() + killPause;
        while ((ended = waitpid(run->process, &waited, WNOHANG)) == 0 && Clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (ended == 0) (void)kill(run->process, SIGKILL);
    }
    while (ended == 0 && waitpid(run->process, &waited, 0) < 0 && errno == EINTR) {
    }
    run->exitStatus = run->timedOut ? static_cast<int>(EXIT_TIMED_OUT) : StatusOf(waited);
    const std::lock_guard<std::mutex> locked(livingGuard);
    std::erase(living, run->process);
    run->process = 0;
}

void TakeLines(const HostRun &run, std::string *text,
               const std::function<void(const HostRun &, const std::string &)> &take) {
    for (std::size_t end; take && (end = text->find('\n')) != std::string::npos;) {
        take(run, text->substr(0, end));
        text->erase(0, end + 1);
    }
}

void ReadEnd(HostRun *run, int *end, std::string *text) {
    char chunk[chunkBytes];
    const ssize_t bytes = read(*end, chunk, sizeof chunk);
    if (bytes > 0) text->append(chunk, static_cast<std::size_t>(bytes));
    const bool isOver = bytes == 0 || (bytes < 0 && errno != EINTR);
    const bool isTooMuch = text->size() > mostOutput;
    if (isTooMuch) run->timedOut = true;
    if (isOver || isTooMuch) CloseEnd(end);
}

int MsUntil(Clock::time_point limit) {
    if (limit == Clock::time_point::max()) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left + 1, 0, 60'000));
}

// Waits until one of them has written, ended, or used up its time, and takes what there is.
void Serve(const std::vector<HostRun *> &under, const HostRunRules &rules) {
    std::vector<pollfd> polled;
    Clock::time_point limit = Clock::time_point::max();
    for (const HostRun *run : under) {
        polled.push_back({run->outputEnd, POLLIN, 0});
        polled.push_back({run->errorEnd, POLLIN, 0});
        limit = std::min(limit, run->limit);
    }
    if (rules.takeLine) polled.push_back({STDOUT_FILENO, 0, 0}); // tells when its reader has gone
    (void)poll(polled.data(), polled.size(), MsUntil(limit));    // without an answer the limits are looked at
    for (std::size_t i = 0; i < under.size(); ++i) {
        HostRun *const run = under[i];
        if (polled[2 * i].revents != 0) ReadEnd(run, &run->outputEnd, &run->output);
        if (polled[2 * i + 1].revents != 0) ReadEnd(run, &run->errorEnd, &run->error);
        TakeLines(*run, &run->output, rules.takeLine);
        TakeLines(*run, &run->error, rules.takeErrorLine);
        const bool isOpen = run->outputEnd >= 0 || run->errorEnd >= 0;
        if (isOpen && Clock::now() >= run->limit) run->timedOut = true;
    }
    if (rules.takeLine && (polled.back().revents & POLLERR) != 0) std::exit(128 + SIGPIPE);
}

} // namespace

void RunSideBySide(std::vector<HostRun> *runs, const HostRunRules &rules) {
    (void)std::atexit(EndLiving); // where it cannot be, they end when their pipes do
    std::vector<HostRun *> under;
    for (std::size_t next = 0; next < runs->size() || !under.empty();) {
        while (next < runs->size() && under.size() < rules.parallel) {
            Begin(&(*runs)[next], rules.timeoutSec);
            under.push_back(&(*runs)[next++]);
        }
        std::erase_if(under, [](HostRun *run) {
            const bool isOver = run->timedOut || run->process == 0 || (run->outputEnd < 0 && run->errorEnd < 0);
            if (isOver) Finish(run);
            return isOver;
        });
        if (!under.empty()) Serve(under, rules);
    }
}
