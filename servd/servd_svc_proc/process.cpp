// SPDX-License-Identifier: MIT
// process: forks a service's program under its account, and takes its end.
//
// Owns:    the pipe that a failed fork left, until the next start takes it.
// Reads:   "ImagePath".
// Thread:  main thread; a reaper thread for each started process only waits for its end.
#include "servd/servd_svc_proc/process.h"

#include "servd/checked_memory.h"
#include "servd/child_signals.h"
#include "servd/servd_svc_proc/account.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/path_util.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr char shell[] = "/bin/csh";
constexpr char shellVariable[] = "SHELL=/bin/csh";

// What the child needs between fork and exec, where nothing may be allocated.
struct Program {
    const char *imagePath;
    const Account *account;
    char *const *environment;
};

// The daemon's environment with SHELL set; its texts are borrowed.
std::unique_ptr<char *, Calls<&std::free>> EnvironmentWithShell() {
    std::size_t count = 0;
    while (environ[count] != nullptr)
        count++;
    auto **variables = static_cast<char **>(CheckedCalloc(count + 2, sizeof(char *)));
    std::memcpy(variables, environ, count * sizeof *variables);
    std::size_t place = 0;
    while (place < count && std::strncmp(variables[place], "SHELL=", 6) != 0)
        place++;
    variables[place] = const_cast<char *>(shellVariable);
    return std::unique_ptr<char *, Calls<&std::free>>(variables);
}

// --- the child ---

// Becomes the service's program, or reports through the pipe that it could not. Async-signal-safe throughout.
[[noreturn]] void RunChild(const Program &program, const int (&pipeEnds)[2]) {
    (void)close(pipeEnds[0]);
    (void)fcntl(pipeEnds[1], F_SETFD, FD_CLOEXEC);
    RestoreSignalsInChild();
    if (BecomeAccount(*program.account)) {
        // Deliberate: the image path is the shell's one argument, and both ways name the shell by its full path.
        const char *const texts[] = {"csh", program.imagePath, nullptr};
        char *const *arguments = const_cast<char *const *>(texts);
        (void)(_ktlIsPathSpec(program.imagePath, 1) != 0 ? execve(shell, arguments, program.environment)
                                                         : execvpe(shell, arguments, program.environment));
    }
    const int failed = -1;
    (void)!write(pipeEnds[1], &failed, sizeof failed);
    _exit(1);
}

// --- its parent ---

// Forks the program. Returns 0 and the process id; 3 when the program could not be executed, 6 when there is no child.
// All signals are blocked on entry, and so they are in the reaper.
std::uint32_t Launch(const Program &program, pid_t *processId) {
    // Deliberate: a fork that fails leaves the pipe open; the next start uses it.
    static int pipeEnds[2] = {-1, -1};
    if (pipeEnds[0] < 0 && pipe(pipeEnds) != 0) return ERROR_INVALID_HANDLE;
    const pid_t child = fork();
    if (child < 0) return ERROR_INVALID_HANDLE; // 6
    if (child == 0) RunChild(program, pipeEnds);

    (void)close(pipeEnds[1]);
    int report = 0;
    const ssize_t reported = read(pipeEnds[0], &report, sizeof report);
    (void)close(pipeEnds[0]);
    pipeEnds[0] = pipeEnds[1] = -1;
    if (reported == sizeof report) {
        (void)waitpid(child, nullptr, 0); // it is ending already, and gets no reaper
        return ERROR_PATH_NOT_FOUND;      // 3
    }
    pthread_t reaper; // where none can be had, the process stays a zombie after its end
    (void)pthread_create(&reaper, nullptr, WaitForService, reinterpret_cast<void *>(static_cast<std::intptr_t>(child)));
    *processId = child;
    return ERROR_SUCCESS;
}

} // namespace

std::uint32_t LaunchService(const char *name, TextBuffer &imagePath, pid_t *processId) {
    HKEY servicesKey = 0;
    HKEY serviceKey = 0;
    OpenServiceKeys(name, &servicesKey, &serviceKey); // Deliberate: the two stay open
    (void)ReadText(serviceKey, imagePathValue, imagePath);
    const Account account = ReadAccount(serviceKey);
    const auto environment = EnvironmentWithShell();
    const Program program = {.imagePath = imagePath, .account = &account, .environment = environment.get()};

    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);
    const std::uint32_t rc = Launch(program, processId);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return rc;
}

void *WaitForService(void *pid) {
    (void)pthread_detach(pthread_self()); // joined by nobody, it would keep its stack for ever
    (void)waitpid(static_cast<pid_t>(reinterpret_cast<std::intptr_t>(pid)), nullptr, 0);
    return nullptr;
}
