// SPDX-License-Identifier: MIT
// launch: what becomes of a child between fork and exec, and what its parent hears of it.
#include "util/launch.h"
#include "util/monotonic_ms.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int patientMs = 20000;

int TakeEnd(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

bool IsOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

const char *BecomeShell(const char *const &command) {
    execl("/bin/sh", "sh", "-c", command, nullptr);
    return "the shell";
}

const char *FailAt(const char *const &step) {
    errno = EXDEV;
    return step;
}

const char *Halt(const int &) {
    (void)raise(SIGSTOP);
    return "never";
}

// Status 0 when the child leads its group, with its signals blocked as it is told.
const char *TellItsWorld(const int &) {
    sigset_t mask;
    (void)sigprocmask(SIG_SETMASK, nullptr, &mask);
    _exit(getpgid(0) == getpid() && sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGINT) == 1 ? 0 : 1);
}

TEST(Launch, a_child_that_becomes_its_program_is_told_as_such) {
    const char *command = "exit 7";
    int pipeEnds[2] = {-1, -1};
    const Launched launched = Launch<BecomeShell>(command, pipeEnds, patientMs);
    EXPECT_EQ(launched.step, nullptr);
    EXPECT_EQ(WEXITSTATUS(TakeEnd(launched.child)), 7);
    EXPECT_EQ(pipeEnds[0], -1);
    EXPECT_EQ(pipeEnds[1], -1);
}

TEST(Launch, a_failed_step_is_told_with_its_errno) {
    const char *step = "the third step";
    int pipeEnds[2] = {-1, -1};
    const Launched launched = Launch<FailAt>(step, pipeEnds, patientMs);
    EXPECT_EQ(launched.step, step);
    EXPECT_EQ(launched.error, EXDEV);
    (void)TakeEnd(launched.child);
}

TEST(Launch, a_child_that_does_not_go_on_is_killed_at_its_limit) {
    const int nothing = 0;
    int pipeEnds[2] = {-1, -1};
    const std::int64_t begin = MonotonicMs();
    const Launched launched = Launch<Halt>(nothing, pipeEnds, 100);
    EXPECT_LT(MonotonicMs() - begin, patientMs);
    EXPECT_NE(launched.step, nullptr);
    EXPECT_EQ(launched.error, ETIMEDOUT);
    EXPECT_EQ(WTERMSIG(TakeEnd(launched.child)), SIGKILL);
}

TEST(Launch, the_child_leads_a_group_of_its_own_and_begins_with_all_signals_blocked) {
    const int nothing = 0;
    int pipeEnds[2] = {-1, -1};
    const Launched launched = Launch<TellItsWorld>(nothing, pipeEnds, patientMs);
    EXPECT_EQ(TakeEnd(launched.child), 0);
    sigset_t mask;
    (void)sigprocmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0) << "the parent's are as before";
}

TEST(Launch, without_descriptors_there_is_no_child) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const char *command = "exit";
    int pipeEnds[2] = {-1, -1};
    const Launched launched = Launch<BecomeShell>(command, pipeEnds, patientMs);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(launched.child, 0);
    EXPECT_NE(launched.step, nullptr);
    EXPECT_EQ(launched.error, EMFILE);
    EXPECT_EQ(pipeEnds[0], -1);
}

TEST(Launch, a_pipe_that_was_left_is_taken) {
    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    const int readEnd = pipeEnds[0];
    const char *command = "exit";
    const Launched launched = Launch<BecomeShell>(command, pipeEnds, patientMs);
    EXPECT_EQ(launched.step, nullptr);
    (void)TakeEnd(launched.child);
    EXPECT_EQ(pipeEnds[0], -1);
    EXPECT_FALSE(IsOpen(readEnd));
}

// What a handler that ends the process sees of a child: the process, and the pipe with only the child at its other end.
pid_t StartOnItsWay(int (&pipeEnds)[2], void (*inChild)(int pipe)) {
    EXPECT_EQ(pipe2(pipeEnds, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        inChild(pipeEnds[1]);
        for (;;) {
            (void)pause();
        }
    }
    (void)close(pipeEnds[1]);
    return child;
}

// How the child ended that was killed on its way with `inChild` done; SIGTERM when it was not.
int EndOnItsWay(void (*inChild)(int pipe), bool isPipeReady) {
    int pipeEnds[2];
    const pid_t child = StartOnItsWay(pipeEnds, inChild);
    pollfd ready = {pipeEnds[0], POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, isPipeReady ? patientMs : 0), isPipeReady ? 1 : 0);
    const ChildOnItsWay seen = {child, pipeEnds[0]};
    KillOnItsWay(seen);
    (void)kill(child, SIGTERM); // comes too late for a child that was killed
    (void)close(pipeEnds[0]);
    return WTERMSIG(TakeEnd(child));
}

TEST(Launch, a_child_that_is_halted_on_its_way_is_killed_with_the_process) {
    EXPECT_EQ(EndOnItsWay([](int) {}, false), SIGKILL);
}

TEST(Launch, a_child_that_has_told_of_a_failure_is_killed_with_the_process) {
    EXPECT_EQ(EndOnItsWay([](int pipe) { (void)!write(pipe, "failed", 6); }, true), SIGKILL);
}

// The program runs as soon as its exec has closed the pipe, and the launching process may hear of it much later.
TEST(Launch, a_child_that_has_become_its_program_outlives_the_process) {
    EXPECT_EQ(EndOnItsWay([](int pipe) { (void)close(pipe); }, true), SIGTERM);
}

} // namespace
