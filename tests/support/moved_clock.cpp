// SPDX-License-Identifier: MIT
// moved_clock: runs a program, and whatever it starts, at another time of day.
//
//   moved_clock SECONDS PROGRAM ARGUMENT...
//
// SECONDS, since the epoch, is the time at which the program starts; from then on its clock goes as the machine's does.
//
// The answers are changed at the kernel, beneath libc, which takes them for true at its own word size. This process
// becomes the program, under a filter that hands its questions for the time to a child, which answers them until no
// process is left to ask. The vDSO, which answers without asking the kernel, is taken out of the list of what the
// program is told at its start.
#include <elf.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

#ifdef __x86_64__
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
constexpr std::uint32_t askTime = SYS_clock_gettime;
std::uintptr_t StackOf(const user_regs_struct &registers) { return registers.rsp; }
#else
constexpr std::uint32_t architecture = AUDIT_ARCH_I386;
constexpr std::uint32_t askTime = SYS_clock_gettime64;
std::uintptr_t StackOf(const user_regs_struct &registers) { return static_cast<std::uintptr_t>(registers.esp); }
#endif

// As the call above has it at both word sizes.
struct KernelTime {
    std::int64_t seconds;
    std::int64_t nanoseconds;
};

[[noreturn]] void Stop(const char *step) {
    std::perror(step);
    std::_Exit(126);
}

void Check(bool holds, const char *step) {
    if (!holds) Stop(step);
}

// Returns the descriptor at which the questions arrive.
int FilterQuestions() {
    constexpr auto wordAt = [](std::size_t offset) {
        return sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
    };
    constexpr auto unless = [](std::uint32_t value, std::uint8_t skip) {
        return sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skip));
    };
    sock_filter steps[] = {
        wordAt(offsetof(seccomp_data, arch)),
        unless(architecture, 5),
        wordAt(offsetof(seccomp_data, nr)),
        unless(askTime, 3),
        wordAt(offsetof(seccomp_data, args)),
        unless(CLOCK_REALTIME, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof steps / sizeof *steps, steps};
    Check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no_new_privs");
    const long listener = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program);
    Check(listener >= 0, "seccomp");
    return static_cast<int>(listener);
}

// --- the child ---

void HideVdso(pid_t program) {
    user_regs_struct registers = {};
    iovec area = {&registers, sizeof registers};
    Check(ptrace(PTRACE_GETREGSET, program, NT_PRSTATUS, &area) == 0, "registers");
    auto *place = reinterpret_cast<std::uintptr_t *>(StackOf(registers));
    const auto read = [program](std::uintptr_t *from) {
        return static_cast<std::uintptr_t>(ptrace(PTRACE_PEEKDATA, program, from, nullptr));
    };
    place += 1 + read(place) + 1; // the number of arguments, these, null
    while (read(place) != 0) {    // the environment
        ++place;
    }
    for (++place; read(place) != AT_NULL; place += 2) {
        if (read(place) != AT_SYSINFO_EHDR && read(place) != AT_SYSINFO) continue;
        Check(ptrace(PTRACE_POKEDATA, program, place, AT_IGNORE) == 0, "auxiliary vector");
    }
}

// Holds the program between its exec and its first step for as long as it takes.
void AwaitStart(pid_t program) {
    int status = 0;
    do {
        Check(waitpid(program, &status, __WALL) == program && WIFSTOPPED(status), "exec");
        if (status >> 16 == PTRACE_EVENT_EXEC) break;
        Check(ptrace(PTRACE_CONT, program, nullptr, WSTOPSIG(status)) == 0, "continue");
    } while (true);
    HideVdso(program);
    Check(ptrace(PTRACE_DETACH, program, nullptr, nullptr) == 0, "detach");
}

void Answer(int listener, std::int64_t offset) {
    seccomp_notif question = {};
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &question) != 0) return; // the asker is gone
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    KernelTime moved = {now.tv_sec + offset, now.tv_nsec};
    const iovec from = {&moved, sizeof moved};
    const iovec to = {reinterpret_cast<void *>(static_cast<std::uintptr_t>(question.data.args[1])), sizeof moved};
    seccomp_notif_resp answer = {};
    answer.id = question.id;
    if (process_vm_writev(static_cast<pid_t>(question.pid), &from, 1, &to, 1, 0) < 0) answer.error = -errno;
    (void)ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
}

// One step of two processes after the other.
void Tell(int descriptor) { Check(write(descriptor, "", 1) == 1, "tell"); }
void AwaitWord(int descriptor) {
    char word;
    Check(read(descriptor, &word, 1) == 1, "await");
}

struct Pipe {
    int ends[2];
    Pipe() { Check(pipe2(ends, O_CLOEXEC) == 0, "pipe"); }
};

} // namespace

int main(int count, char **arguments) {
    if (count < 3) return 2;
    const std::int64_t offset = std::atoll(arguments[1]) - std::int64_t{time(nullptr)};
    const pid_t program = getpid();
    const Pipe filtered;
    const Pipe watched;
    const pid_t child = fork();
    Check(child >= 0, "fork");
    if (child > 0) {
        (void)prctl(PR_SET_PTRACER, child, 0, 0, 0); // needed where only descendants may be traced
        const int listener = FilterQuestions();
        Check(write(filtered.ends[1], &listener, sizeof listener) == sizeof listener, "tell");
        AwaitWord(watched.ends[0]);
        (void)close(listener);
        (void)execv(arguments[2], arguments + 2);
        Stop(arguments[2]);
    }
    int number = -1;
    Check(read(filtered.ends[0], &number, sizeof number) == sizeof number, "await");
    const int process = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, process, number, 0));
    Check(listener >= 0, "listener");
    Check(ptrace(PTRACE_SEIZE, program, nullptr, PTRACE_O_TRACEEXEC) == 0, "seize");
    Tell(watched.ends[1]);
    AwaitStart(program);
    pollfd questions = {listener, POLLIN, 0};
    while (poll(&questions, 1, -1) > 0 && (questions.revents & POLLIN) != 0) {
        Answer(listener, offset);
    }
    return 0;
}
