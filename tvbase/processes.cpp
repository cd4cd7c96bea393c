// SPDX-License-Identifier: MIT
// processes: their handles, which are process descriptors of the kernel, and their end.
//
// One thread watches all processes that somebody has waited for; it is started with the first and stays.
#include "tvbase/processes.h"

#include "tvbase/result.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <unordered_map>

namespace {

constexpr int shellSignalBase = 128; // a process that a signal ended has this plus the signal, as in a shell

// Belongs to the lock of all objects. A descriptor that was closed has left the epoll set by itself, and its number may
// stand for another process by now. It stays there as long as a child of this process has it, too: an end is told once,
// or the thread would hear of it for ever.
struct Watch {
    int epoll = -1;
    std::unordered_map<int, std::weak_ptr<Object>> processes; // by descriptor
    std::unordered_map<int, ObjectRef> children;              // those of them that live on without a handle
};

Watch &TheWatch() {
    static Watch *const watch = new Watch; // for ever: its thread uses it while the process ends
    return *watch;
}

bool HasEnded(int descriptor) {
    pollfd process = {descriptor, POLLIN, 0};
    return poll(&process, 1, 0) == 1;
}

DWORD CodeOf(const siginfo_t &info) {
    const int code = info.si_code == CLD_EXITED ? info.si_status : shellSignalBase + info.si_status;
    return static_cast<DWORD>(code);
}

// The end of a process that is not the library's own is left to whoever waits for it by Unix's means.
void NoteEnd(const ObjectsLock &lock, Object *process) {
    siginfo_t info = {};
    const auto descriptor = static_cast<id_t>(process->descriptor);
    const int leave = process->isChild ? 0 : WNOWAIT;
    const bool told = waitid(P_PIDFD, descriptor, &info, WEXITED | WNOHANG | leave) == 0 && info.si_pid != 0;
    process->codeKnown = told || process->codeGiven;
    if (process->codeGiven) return SignalEnd(lock, process, process->givenCode);
    SignalEnd(lock, process, told ? CodeOf(info) : 0);
}

// What a process tells of a code: its low eight bits, and a failure stays one.
int ExitStatus(unsigned code) {
    constexpr unsigned lowByte = 0xFF;
    const unsigned status = code & lowByte;
    return static_cast<int>(status == 0 && code != 0 ? lowByte : status);
}

// An end that shows at this descriptor.
void TakeEnd(int descriptor) {
    ObjectRef process; // let go of behind the lock
    const ObjectsLock lock = LockObjects();
    const auto found = TheWatch().processes.find(descriptor);
    if (found == TheWatch().processes.end()) return;
    process = found->second.lock();
    if (process != nullptr && !HasEnded(descriptor)) return;
    TheWatch().processes.erase(found);
    if (process == nullptr) return;
    TheWatch().children.erase(descriptor);
    (void)epoll_ctl(TheWatch().epoll, EPOLL_CTL_DEL, descriptor, nullptr);
    if (!process->ended) NoteEnd(lock, process.get());
}

[[noreturn]] void WatchForEver(int epoll) {
    for (;;) {
        epoll_event event;
        if (epoll_wait(epoll, &event, 1, -1) == 1) TakeEnd(event.data.fd);
    }
}

// The thread takes none of the program's signals.
void StartWatching(Watch *watch) {
    sigset_t all, before;
    (void)sigfillset(&all);
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) throw std::bad_alloc();
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread(WatchForEver, epoll).detach();
    } catch (...) {
        (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
        (void)close(epoll);
        throw;
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    watch->epoll = epoll;
}

void EnterInWatch(const ObjectRef &process) {
    Watch &watch = TheWatch();
    if (watch.epoll < 0) StartWatching(&watch);
    watch.processes[process->descriptor] = process;
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.fd = process->descriptor;
    if (epoll_ctl(watch.epoll, EPOLL_CTL_ADD, process->descriptor, &event) != 0 && errno != EEXIST) {
        throw std::bad_alloc();
    }
}

// glibc's own function cannot be linked from C++ before its version 2.37.
int OpenDescriptor(pid_t id) { return static_cast<int>(syscall(SYS_pidfd_open, id, 0)); }

DWORD FindProcess(DWORD id, ObjectRef *process) {
    *process = std::make_shared<Object>(ObjectKind::process);
    (*process)->id = id;
    (*process)->descriptor = OpenDescriptor(static_cast<pid_t>(id));
    if ((*process)->descriptor >= 0) return ERROR_SUCCESS;
    if (errno == ESRCH || errno == EINVAL) return ERROR_INVALID_PARAMETER;
    return errno == ENOSYS ? ERROR_NOT_SUPPORTED : ERROR_NOT_ENOUGH_MEMORY;
}

DWORD OpenById(DWORD id, HANDLE *handle) {
    ObjectRef process;
    if (const DWORD rc = FindProcess(id, &process); rc != 0) return rc;
    *handle = OpenObject(LockObjects(), process);
    return ERROR_SUCCESS;
}

DWORD Terminate(const ObjectRef &process, DWORD code) {
    const ObjectsLock lock = LockObjects();
    if (process->ended || (process->descriptor >= 0 && HasEnded(process->descriptor))) return ERROR_ACCESS_DENIED;
    if (syscall(SYS_pidfd_send_signal, process->descriptor, SIGKILL, nullptr, 0) != 0) return ERROR_ACCESS_DENIED;
    process->codeGiven = true;
    process->givenCode = code;
    return ERROR_SUCCESS;
}

} // namespace

void WatchProcess(const ObjectRef &object, bool untilItEnds) {
    const ObjectsLock lock = LockObjects();
    if (object->kind != ObjectKind::process || object->descriptor < 0 || object->ended) return;
    if (HasEnded(object->descriptor)) {
        NoteEnd(lock, object.get());
    } else if (untilItEnds) {
        EnterInWatch(object);
    }
}

DWORD AdoptChild(pid_t id, HANDLE *handle, HANDLE *other) {
    ObjectRef process;
    if (const DWORD rc = FindProcess(static_cast<DWORD>(id), &process); rc != 0) return rc;
    const ObjectsLock lock = LockObjects();
    process->isChild = true;
    EnterInWatch(process);
    TheWatch().children.emplace(process->descriptor, process);
    *handle = OpenObject(lock, process);
    *other = OpenObject(lock, process);
    return ERROR_SUCCESS;
}

HANDLE OpenProcess(DWORD, BOOL, DWORD dwProcessId) {
    HANDLE handle = nullptr;
    (void)Answer(Guarded([&] { return OpenById(dwProcessId, &handle); }));
    return handle;
}

BOOL GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode) {
    if (lpExitCode == nullptr) return Answer(ERROR_INVALID_PARAMETER);
    const ObjectRef process = FindObject(hProcess, ObjectKind::process);
    if (process == nullptr) return Answer(ERROR_INVALID_HANDLE);
    const ObjectsLock lock = LockObjects();
    if (!process->ended && process->descriptor >= 0 && HasEnded(process->descriptor)) NoteEnd(lock, process.get());
    *lpExitCode = process->exitCode;
    return Answer(process->codeKnown ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED);
}

BOOL TerminateProcess(HANDLE hProcess, unsigned uExitCode) {
    if (hProcess == GetCurrentProcess()) _exit(ExitStatus(uExitCode));
    const ObjectRef process = FindObject(hProcess, ObjectKind::process);
    return Answer(process == nullptr ? ERROR_INVALID_HANDLE : Terminate(process, uExitCode));
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }

void ExitProcess(unsigned uExitCode) { std::exit(ExitStatus(uExitCode)); }
