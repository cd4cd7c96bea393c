// SPDX-License-Identifier: MIT
// strict_calls: loaded into the daemon before its libraries (LD_PRELOAD), ends the process with status 9 as soon as a
// signal handler, or a child on its way from fork to exec, takes or gives back memory, takes a lock or calls exit; and
// the child also when it speaks to somebody. Any of these may hang for ever, or take another's answer.
//
// So ends a child that executes a program with other signals blocked than the daemon was started with.
//
// The child that becomes a service is the one that is forked while SIGUSR1 is blocked.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

extern "C" void *__libc_malloc(std::size_t bytes);
extern "C" void *__libc_calloc(std::size_t count, std::size_t bytes);
extern "C" void *__libc_realloc(void *block, std::size_t bytes);
extern "C" void __libc_free(void *block);

namespace {

thread_local int handlersRunning = 0;
thread_local bool isChild = false;
void (*handlers[NSIG])(int) = {};

sigset_t maskAtStart = {};

[[gnu::constructor]] void Prepare() {
    (void)unsetenv("LD_PRELOAD"); // the services and their shells may do as they like
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &maskAtStart);
}

bool IsMaskAsAtStart() {
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&mask, number) != sigismember(&maskAtStart, number)) return false;
    }
    return true;
}

void RequirePlainCode() {
    if (handlersRunning > 0 || isChild) _exit(9);
}

void Handle(int signalNumber) {
    ++handlersRunning;
    handlers[signalNumber](signalNumber);
    --handlersRunning;
}

template <typename Function>
Function *TheRealOne(Function * /*shape*/, const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int sigaction(int signalNumber, const struct sigaction *action, struct sigaction *before) noexcept {
    static const auto real = TheRealOne(&sigaction, "sigaction");
    if (action == nullptr || action->sa_handler == SIG_DFL || action->sa_handler == SIG_IGN) {
        return real(signalNumber, action, before);
    }
    handlers[signalNumber] = action->sa_handler;
    struct sigaction watched = *action;
    watched.sa_handler = Handle;
    return real(signalNumber, &watched, before);
}

pid_t fork() noexcept {
    static const auto real = TheRealOne(&fork, "fork");
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    const pid_t process = real();
    isChild = process == 0 && sigismember(&mask, SIGUSR1) == 1;
    return process;
}

ssize_t send(int descriptor, const void *bytes, std::size_t count, int flags) {
    static const auto real = TheRealOne(&send, "send");
    if (isChild) _exit(9);
    return real(descriptor, bytes, count, flags);
}

int execve(const char *path, char *const arguments[], char *const environment[]) noexcept {
    static const auto real = TheRealOne(&execve, "execve");
    if (isChild && !IsMaskAsAtStart()) _exit(9);
    return real(path, arguments, environment);
}

void *malloc(std::size_t bytes) noexcept {
    RequirePlainCode();
    return __libc_malloc(bytes);
}

void *calloc(std::size_t count, std::size_t bytes) noexcept {
    RequirePlainCode();
    return __libc_calloc(count, bytes);
}

void *realloc(void *block, std::size_t bytes) noexcept {
    RequirePlainCode();
    return __libc_realloc(block, bytes);
}

void free(void *block) noexcept {
    RequirePlainCode();
    __libc_free(block);
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    static const auto real = TheRealOne(&pthread_mutex_lock, "pthread_mutex_lock");
    RequirePlainCode();
    return real(mutex);
}

int pthread_rwlock_wrlock(pthread_rwlock_t *lock) noexcept {
    static const auto real = TheRealOne(&pthread_rwlock_wrlock, "pthread_rwlock_wrlock");
    RequirePlainCode();
    return real(lock);
}

void exit(int status) noexcept {
    static const auto real = TheRealOne(&exit, "exit");
    RequirePlainCode();
    real(status);
    __builtin_unreachable();
}
}
