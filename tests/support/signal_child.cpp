// SPDX-License-Identifier: MIT
// signal_child: loaded into the daemon before its libraries (LD_PRELOAD), signals each child that is about to become a
// service: with TV_SIGNAL_CHILD=first by SIGTERM while all signals are still blocked in it, with "last" by SIGTERM and
// with "halt" by SIGSTOP right before its exec.
//
// Such a child is the only process of the daemon that leaves its process group while SIGUSR1 is blocked, and the only
// one that calls execve.
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

bool Wants(const char *what) {
    const char *wanted = std::getenv("TV_SIGNAL_CHILD");
    return wanted != nullptr && std::strcmp(wanted, what) == 0;
}

bool AreSignalsBlocked() {
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1;
}

} // namespace

extern "C" int setpgid(pid_t process, pid_t group) noexcept {
    if (Wants("first") && AreSignalsBlocked()) (void)kill(getpid(), SIGTERM);
    using Function = int (*)(pid_t, pid_t);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "setpgid"))(process, group);
}

extern "C" int execve(const char *path, char *const arguments[], char *const environment[]) noexcept {
    if (Wants("last")) (void)kill(getpid(), SIGTERM);
    if (Wants("halt")) (void)kill(getpid(), SIGSTOP);
    using Function = int (*)(const char *, char *const *, char *const *);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "execve"))(path, arguments, environment);
}
