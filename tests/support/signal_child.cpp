// SPDX-License-Identifier: MIT
// signal_child: loaded into the daemon before its libraries (LD_PRELOAD), sends SIGTERM to each child that is about to
// become a service: with TV_SIGNAL_CHILD=first while all signals are still blocked in it, else right before its exec.
//
// Such a child is the only process of the daemon that marks a descriptor close-on-exec while SIGUSR1 is blocked, and
// the only one that calls execve.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

bool SignalsFirst() {
    const char *when = std::getenv("TV_SIGNAL_CHILD");
    return when != nullptr && std::strcmp(when, "first") == 0;
}

bool AreSignalsBlocked() {
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1;
}

int Fcntl(const char *name, int descriptor, int command, void *argument) {
    if (command == F_SETFD && SignalsFirst() && AreSignalsBlocked()) (void)kill(getpid(), SIGTERM);
    using Function = int (*)(int, int, ...);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(descriptor, command, argument);
}

} // namespace

extern "C" int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return Fcntl("fcntl", descriptor, command, argument);
}

extern "C" int fcntl64(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return Fcntl("fcntl64", descriptor, command, argument);
}

extern "C" int execve(const char *path, char *const arguments[], char *const environment[]) noexcept {
    if (!SignalsFirst()) (void)kill(getpid(), SIGTERM);
    using Function = int (*)(const char *, char *const *, char *const *);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "execve"))(path, arguments, environment);
}
