// SPDX-License-Identifier: MIT
// process: forks a service's program under its account.
//
// Owns:    the pipe that a failed fork left, until the next start takes it; the number of the child on its way.
// Reads:   "ImagePath".
// Thread:  main thread.
#include "servd/servd_svc_proc/process.h"

#include "servd/checked_memory.h"
#include "servd/child_signals.h"
#include "servd/descriptor_limit.h"
#include "servd/limits.h"
#include "servd/servd_svc_proc/account.h"
#include "servd/servd_svc_proc/reaper.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "util/launch.h"
#include "util/path_util.h"

#include <signal.h>
#include <unistd.h>

#include <cstring>

namespace {

ChildOnItsWay childOnItsWay;

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
    while (environ[count] != nullptr) {
        count++;
    }
    auto **variables = static_cast<char **>(CheckedCalloc(count + 2, sizeof(char *)));
    std::memcpy(variables, environ, count * sizeof *variables);
    std::size_t place = 0;
    while (place < count && std::strncmp(variables[place], "SHELL=", 6) != 0) {
        place++;
    }
    variables[place] = const_cast<char *>(shellVariable);
    return std::unique_ptr<char *, Calls<&std::free>>(variables);
}

// Between fork and exec. Deliberate: the image path is the shell's one argument, and both ways name the shell by its
// full path.
const char *BecomeService(const Program &program) {
    RestoreDescriptorLimitInChild();
    RestoreSignalsInChild();
    if (!BecomeAccount(*program.account)) return "account";
    const char *const texts[] = {"csh", program.imagePath, nullptr};
    char *const *arguments = const_cast<char *const *>(texts);
    (void)(_ktlIsPathSpec(program.imagePath, 1) != 0 ? execve(shell, arguments, program.environment)
                                                     : execvpe(shell, arguments, program.environment));
    return shell;
}

} // namespace

Win32Code LaunchService(const char *name, TextBuffer &imagePath, pid_t *processId) {
    HKEY servicesKey = 0;
    HKEY serviceKey = 0;
    OpenServiceKeys(name, &servicesKey, &serviceKey); // Deliberate: the two stay open
    (void)ReadText(serviceKey, imagePathValue, imagePath);
    const Account account = ReadAccount(serviceKey);
    const auto environment = EnvironmentWithShell();
    const Program program = {.imagePath = imagePath, .account = &account, .environment = environment.get()};

    // Deliberate: a fork that fails leaves the pipe open; the next start uses it.
    static int pipeEnds[2] = {-1, -1};
    const Launched launched = Launch<BecomeService>(program, pipeEnds, execLimitMs, &childOnItsWay);
    if (launched.child == 0) return ERROR_INVALID_HANDLE; // 6
    if (launched.step != nullptr) {
        TakeEndOfKilled(launched.child);
        return ERROR_PATH_NOT_FOUND; // 3
    }
    HaveEndTaken(launched.child);
    *processId = launched.child;
    return ERROR_SUCCESS;
}

void KillChildOnItsWay() { KillOnItsWay(childOnItsWay); }
