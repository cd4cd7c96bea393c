// SPDX-License-Identifier: MIT
// host_run: starting processes, reading their pipes and ending those that take too long.
//
// A run is over when its process has ended behind both of its pipes. One whose time is over, or that writes too much,
// is asked to end and killed a second later; that second is the same for all of them. What is kept has one bound for
// all runs together, however many hosts there are.
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
constexpr auto endPause = std::chrono::milliseconds(5); // between two looks for an end that no pipe tells
constexpr std::size_t chunkBytes = 64 * 1024;

// The processes that are under way, for the end of the program, which may come in another thread. They are started and
// their ends are taken under the guard, so that no number that is free again gets a signal.
std::mutex livingGuard;
std::vector<pid_t> living;

void EndLiving() {
    livingGuard.lock(); // and never unlocked: nothing begins any more
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

int SpawnLiving(HostRun *run, int output, int error) {
    const std::lock_guard<std::mutex> locked(livingGuard);
    const int rc = Spawn(run->command, output, error, &run->process);
    if (rc == 0) living.push_back(run->process);
    return rc;
}

void Begin(HostRun *run, double timeoutSec) {
    run->killAt = Clock::time_point::max();
    run->limit =
        timeoutSec > 0
            ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutSec))
            : Clock::time_point::max();
    int output = -1, error = -1;
    const bool hasPipes = MakePipe(&run->outputEnd, &output) && MakePipe(&run->errorEnd, &error);
    const DescriptorGuard outputClosed(&output), errorClosed(&error);
    const int rc = hasPipes ? SpawnLiving(run, output, error) : errno;
    if (rc == 0) return;
    run->process = 0;
    Fail(run, run->command.front() + ": " + std::strerror(rc));
}

void CloseEnd(int *end) {
    if (*end >= 0) (void)close(*end);
    *end = -1;
}

int StatusOf(int waited) { return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited); }

bool IsRead(const HostRun &run) { return run.outputEnd < 0 && run.errorEnd < 0; }

// Asks a run to end of which nothing more is taken.
void Stop(HostRun *run) {
    CloseEnd(&run->outputEnd);
    CloseEnd(&run->errorEnd);
    if (run->process != 0) (void)kill(run->process, SIGTERM); // may have ended
    run->limit = Clock::time_point::max();
    run->killAt = Clock::now() + killPause;
}

// Takes the end of a run's process, if that has come behind its pipes.
bool IsOver(HostRun *run) {
    if (run->process == 0) {
        CloseEnd(&run->outputEnd);
        CloseEnd(&run->errorEnd);
        return true;
    }
    if (!IsRead(*run)) return false;
    const std::lock_guard<std::mutex> locked(livingGuard);
    int waited = 0;
    if (waitpid(run->process, &waited, WNOHANG) == 0) return false;
    std::erase(living, run->process);
    run->process = 0;
    const int status = run->wroteTooMuch ? static_cast<int>(EXIT_FAILED) : StatusOf(waited);
    run->exitStatus = run->timedOut ? static_cast<int>(EXIT_TIMED_OUT) : status;
    return true;
}

void TakeLines(const HostRun &run, std::string *text,
               const std::function<void(const HostRun &, const std::string &)> &take) {
    for (std::size_t end; take && (end = text->find('\n')) != std::string::npos;) {
        take(run, text->substr(0, end));
        text->erase(0, end + 1);
    }
}

void ReadEnd(int *end, std::string *text) {
    char chunk[chunkBytes];
    const ssize_t bytes = read(*end, chunk, sizeof chunk);
    if (bytes > 0) text->append(chunk, static_cast<std::size_t>(bytes));
    const bool isOver = bytes == 0 || (bytes < 0 && errno != EINTR);
    if (isOver) CloseEnd(end);
}

std::size_t KeptBytes(const HostRun &run) { return run.output.size() + run.error.size(); }

// Gives up those that have written most, over or not, until what is kept is within the bound: a few that pour out keep
// nobody else from being heard.
void KeepWithin(std::size_t mostBytes, std::vector<HostRun> *runs) {
    std::size_t kept = 0;
    for (const HostRun &run : *runs) {
        kept += KeptBytes(run);
    }
    while (kept > mostBytes) {
        HostRun &largest = *std::max_element(
            runs->begin(), runs->end(), [](const HostRun &a, const HostRun &b) { return KeptBytes(a) < KeptBytes(b); });
        kept -= KeptBytes(largest);
        std::string().swap(largest.output);
        std::string().swap(largest.error);
        largest.wroteTooMuch = true;
        largest.exitStatus = EXIT_FAILED;
        if (largest.process != 0) Stop(&largest);
    }
}

// Stops a run whose time is over, and kills one that did not end when it was asked to.
void LookAtTime(HostRun *run) {
    const Clock::time_point now = Clock::now();
    if (now >= run->limit) {
        run->timedOut = true;
        Stop(run);
    } else if (now >= run->killAt) {
        (void)kill(run->process, SIGKILL); // its end has not been taken: it is still that process
        run->killAt = Clock::time_point::max();
    }
}

int MsUntil(Clock::time_point limit) {
    if (limit == Clock::time_point::max()) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left + 1, 0, 60'000));
}

// When something has to be done even if nobody writes.
Clock::time_point NextLook(const std::vector<HostRun *> &under) {
    Clock::time_point next = Clock::time_point::max();
    for (const HostRun *run : under) {
        next = std::min({next, run->limit, run->killAt});
        if (IsRead(*run)) next = std::min(next, Clock::now() + endPause);
    }
    return next;
}

// Waits until one of them has written, ended, or used up its time, and takes what there is.
void Serve(const std::vector<HostRun *> &under, const HostRunRules &rules) {
    std::vector<pollfd> polled;
    for (const HostRun *run : under) {
        polled.push_back({run->outputEnd, POLLIN, 0});
        polled.push_back({run->errorEnd, POLLIN, 0});
    }
    if (rules.takeLine) polled.push_back({STDOUT_FILENO, 0, 0});        // tells when its reader has gone
    (void)poll(polled.data(), polled.size(), MsUntil(NextLook(under))); // without an answer the times are looked at
    for (std::size_t i = 0; i < under.size(); ++i) {
        HostRun *const run = under[i];
        if (polled[2 * i].revents != 0) ReadEnd(&run->outputEnd, &run->output);
        if (polled[2 * i + 1].revents != 0) ReadEnd(&run->errorEnd, &run->error);
        TakeLines(*run, &run->output, rules.takeLine);
        TakeLines(*run, &run->error, rules.takeErrorLine);
        LookAtTime(run);
    }
    if (rules.takeLine && (polled.back().revents & POLLERR) != 0) std::exit(128 + SIGPIPE);
}

} // namespace

void RunSideBySide(std::vector<HostRun> *runs, const HostRunRules &rules) {
    static const int noted = std::atexit(EndLiving);
    (void)noted; // where it could not be, they end when their pipes do
    std::vector<HostRun *> under;
    for (std::size_t next = 0; next < runs->size() || !under.empty();) {
        while (next < runs->size() && under.size() < rules.parallel) {
            Begin(&(*runs)[next], rules.timeoutSec);
            under.push_back(&(*runs)[next++]);
        }
        std::erase_if(under, IsOver);
        if (under.empty()) continue;
        Serve(under, rules);
        KeepWithin(rules.mostBytes, runs);
    }
}
