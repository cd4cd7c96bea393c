// SPDX-License-Identifier: MIT
// start: brings a service up in a new process, notices that the process has ended, declares services dead.
//
//   state            event                             next state
//   stopped          its new process can be reached    start pending, process id recorded
//   start pending    start request answered            start pending, a wait hint, the rest of the status cleared
//   any              ServiceFailed                     stopped with 1067, process id 0
//
// Owns:    the pipe that a failed fork left, until the next start takes it.
// Reads:   "ImagePath", and "DependOnService", which holds the Unix account of the service.
// Thread:  main thread; a reaper thread for each started process only waits for its end.
// Deliberate: a sibling in a shared process that can be reached never takes the start, a new process does, and the
// client handle to the sibling is left over for good; a start leaves its two registry keys open; a process that cannot
// be reached in time is left running and unrecorded.
#include "servd/servd_svc_proc/servd_svc_proc.h"

#include "rpc/dial.h"
#include "servd/checked_memory.h"
#include "servd/child_signals.h"
#include "servd/service_clnt.h"
#include "util/path_util.h"

#include <fcntl.h>
#include <grp.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

namespace {

constexpr char shell[] = "/bin/csh";
constexpr char shellVariable[] = "SHELL=/bin/csh";

// This host as service processes are dialled; its name is resolved once a start.
struct Host {
    bool known;
    in_addr address;
};

// Who a service process runs as.
struct Account {
    bool usable;    // false: the start fails
    bool isNamed;   // a user is to be switched to
    bool hasGroups; // group ids are to be switched too
    uid_t user;
    gid_t group;
    std::unique_ptr<gid_t, Calls<&std::free>> groups; // supplementary
    int groupCount;
};

// What the child needs between fork and exec, where nothing may be allocated.
struct Program {
    const char *imagePath;
    const Account *account;
    char *const *environment;
};

Host ResolveThisHost() {
    Host host = {};
    host.known = ResolveHost(scmhostname, &host.address);
    return host;
}

CLIENT *DialProcess(const Host &host, std::int32_t processId) {
    return host.known ? DialProgram(host.address, ServiceProgram(processId), serviceProgramVersion) : nullptr;
}

// Dials at once, then up to `retries` times more, each after a second's sleep.
CLIENT *DialProcessWithRetries(const Host &host, std::int32_t processId, int retries) {
    CLIENT *client = DialProcess(host, processId);
    for (; client == nullptr && retries > 0; retries--) {
        (void)sleep(retryPauseSec);
        client = DialProcess(host, processId);
    }
    return client;
}

// --- shared processes ---

// The service of an image path that runs, null when there is none.
const ServiceDatabaseEntry *RunningSibling(const GroupMember *members) {
    for (; members != nullptr; members = members->next)
        if (svcdb[members->serviceIndex].status.dwCurrentState != SERVICE_STOPPED) return &svcdb[members->serviceIndex];
    return nullptr;
}

// Whether every announced wait among the services of an image path has passed.
bool HaveAllDeadlinesPassed(const GroupMember *members) {
    timeval now = {};
    (void)gettimeofday(&now, nullptr);
    for (; members != nullptr; members = members->next)
        if (!HasDeadlinePassed(svcdb[members->serviceIndex], now)) return false;
    return true;
}

// Looks for the process that other services of this image path run in. Returns 1053 when there is one that cannot be
// reached but may still come round; 0 when the service is to get a process of its own, which is so in any other case.
std::uint32_t CheckSharedProcess(ServiceDatabaseEntry &entry, const Host &host, TextBuffer &imagePath) {
    HKEY servicesKey = 0;
    HKEY serviceKey = 0;
    OpenServiceKeys(entry.name, &servicesKey, &serviceKey);
    (void)ReadText(serviceKey, imagePathValue, imagePath);
    (void)RegCloseKey(serviceKey);
    (void)RegCloseKey(servicesKey);

    const std::int32_t path = GetGroupIndexFromName(imagepathlist, &imagepathlistsize, imagePath);
    if (path < 0) return ERROR_SUCCESS;
    const GroupMember *members = imagepathlist[path].members;
    const ServiceDatabaseEntry *sibling = RunningSibling(members);
    if (sibling == nullptr) return ERROR_SUCCESS;

    CLIENT *client = DialProcessWithRetries(host, sibling->processId, sharedProcessRetries);
    if (client != nullptr) {
        // Deliberate: the client is neither used nor destroyed, and as the service is still stopped a new process
        // replaces the process id. Each such start thus keeps one connection to the sibling open.
        entry.processId = sibling->processId;
        return ERROR_SUCCESS;
    }
    // Deliberate: stopped services of the list count, too; one with a wait hint of 0 is enough for 1053.
    if (!HaveAllDeadlinesPassed(members)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    for (; members != nullptr; members = members->next)
        ServiceFailed(members->serviceIndex);
    return ERROR_SUCCESS;
}

// --- the child ---

// Fills in the groups of an account. False when they cannot be found out.
bool FindGroups(const passwd &user, Account *account) {
    int count = 0;
    (void)getgrouplist(user.pw_name, user.pw_gid, nullptr, &count);
    account->groups.reset(static_cast<gid_t *>(CheckedCalloc(static_cast<std::size_t>(count) + 1, sizeof(gid_t))));
    account->groupCount = count + 1;
    account->group = user.pw_gid;
    account->hasGroups = true;
    return getgrouplist(user.pw_name, user.pw_gid, account->groups.get(), &account->groupCount) >= 0;
}

constexpr std::size_t accountBytes = 1024; // for the texts of an account

const passwd *FindUser(const char *name, passwd *user, char (&texts)[accountBytes]) {
    passwd *found = nullptr;
    (void)getpwnam_r(name, user, texts, sizeof texts, &found);
    return found;
}

// The account that the service's key names. Only root can take on another's groups; for any other user the switch
// either changes nothing or fails.
Account ReadAccount(HKEY serviceKey) {
    Account account = {};
    TextBuffer name = {};
    const std::uint32_t rc = ReadText(serviceKey, accountValue, name);
    account.usable = rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND;
    if (rc != ERROR_SUCCESS) return account;

    const std::uint32_t user = GetUserIDFromName(name);
    account.isNamed = true;
    account.user = user;
    account.usable = user != UINT32_MAX;
    if (!account.usable || name[0] == '\0' || geteuid() != 0) return account;
    passwd record = {};
    char texts[accountBytes];
    const passwd *found = FindUser(name, &record, texts);
    account.usable = found != nullptr && FindGroups(*found, &account);
    return account;
}

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

bool BecomeAccount(const Account &account) {
    if (!account.usable) return false;
    if (account.hasGroups && (setgroups(static_cast<std::size_t>(account.groupCount), account.groups.get()) != 0 ||
                              setgid(account.group) != 0))
        return false;
    return !account.isNamed || setuid(account.user) == 0;
}

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

// --- the new process ---

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

// Forks the service's program under its account and starts its reaper. Result codes as Launch.
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

std::int64_t NowMs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Waits a moment for the program of a new process to appear in the port mapper. Without it the first attempt to reach
// the process would always come too early, and the second a whole second later.
void AwaitRegistration(const Host &host, pid_t processId) {
    if (!host.known) return;
    const RpcClient portMapper(DialPortMapper(host.address));
    if (portMapper == nullptr) return;
    const std::int64_t end = NowMs() + registrationWaitMs;
    for (std::int64_t pauseMs = 1;
         PortOfProgram(portMapper.get(), ServiceProgram(processId), serviceProgramVersion) == 0; pauseMs *= 2) {
        const std::int64_t leftMs = end - NowMs();
        if (leftMs <= 0) return;
        const timespec pause = {.tv_sec = 0, .tv_nsec = static_cast<long>(std::min(pauseMs, leftMs) * 1000000)};
        (void)nanosleep(&pause, nullptr);
    }
}

// Starts the service's program and reaches its process. Returns 0 and the client; 3, 6, or 1053 when the process could
// not be reached in time.
std::uint32_t StartProcess(ServiceDatabaseEntry &entry, const Host &host, TextBuffer &imagePath, RpcClient *client) {
    pid_t processId = 0;
    const std::uint32_t rc = LaunchService(entry.name, imagePath, &processId);
    if (rc != ERROR_SUCCESS) return rc;
    AwaitRegistration(host, processId);
    client->reset(
        DialProcessWithRetries(host, processId, binitializing != 0 ? newProcessRetriesAtStartUp : newProcessRetries));
    if (*client == nullptr) return ERROR_SERVICE_REQUEST_TIMEOUT; // 1053
    entry.status.dwCurrentState = SERVICE_START_PENDING;
    entry.processId = processId;
    return ERROR_SUCCESS;
}

} // namespace

std::uint32_t QuickStartService(std::int32_t index, svc_arglist_t *arglist, std::int32_t argc) {
    ServiceDatabaseEntry &entry = svcdb[index];
    if (entry.status.dwCurrentState != SERVICE_STOPPED)
        return ERROR_SERVICE_ALREADY_RUNNING; // no process to hand it to
    const Host host = ResolveThisHost();
    TextBuffer imagePath = {}; // what cannot be read into it leaves it as it is
    if ((entry.type & SERVICE_WIN32_SHARE_PROCESS) != 0) {
        const std::uint32_t rc = CheckSharedProcess(entry, host, imagePath);
        if (rc != ERROR_SUCCESS) return rc;
    }
    RpcClient client;
    const std::uint32_t rc = StartProcess(entry, host, imagePath, &client);
    if (rc != ERROR_SUCCESS) return rc;

    service_START_SERVICE_IN request = {
        .servicename = entry.name, .arglist = arglist, .argc = argc, .serviceindex = index};
    service_START_SERVICE_OUT *answer = service_start_service_1(&request, client.get());
    if (answer == nullptr) return ERROR_SERVICE_REQUEST_TIMEOUT; // 1053; start pending
    entry.serviceContext = answer->servicecontext;
    // Deliberate: the deadline is left as it was.
    entry.status = {.dwServiceType = entry.type,
                    .dwCurrentState = SERVICE_START_PENDING,
                    .dwControlsAccepted = 0,
                    .dwWin32ExitCode = 0,
                    .dwServiceSpecificExitCode = 0,
                    .dwCheckPoint = 0,
                    .dwWaitHint = startWaitHintMs};
    const std::int32_t status = answer->status;
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_service_START_SERVICE_OUT), answer);
    return static_cast<std::uint32_t>(status);
}

// Deliberate: the accepted controls, the specific exit code, the context and the deadline keep their values.
void ServiceFailed(std::int32_t index) {
    ServiceDatabaseEntry &entry = svcdb[index];
    entry.processId = 0;
    entry.status.dwCurrentState = SERVICE_STOPPED;
    entry.status.dwWin32ExitCode = ERROR_PROCESS_ABORTED; // 1067
    entry.status.dwCheckPoint = 0;
    entry.status.dwWaitHint = 0;
}

void *WaitForService(void *pid) {
    (void)pthread_detach(pthread_self()); // joined by nobody, it would keep its stack for ever
    (void)waitpid(static_cast<pid_t>(reinterpret_cast<std::intptr_t>(pid)), nullptr, 0);
    return nullptr;
}

std::uint32_t GetUserIDFromName(const char *name) {
    if (name == nullptr || *name == '\0') return 0;
    passwd user = {};
    char texts[accountBytes];
    const passwd *found = FindUser(name, &user, texts);
    return found == nullptr ? UINT32_MAX : found->pw_uid;
}

std::uint32_t multistrlen(const char *p) {
    if (p == nullptr) return 0;
    const char *end = p;
    while (*end != '\0')
        end += std::strlen(end) + 1;
    return static_cast<std::uint32_t>(end - p) + 1;
}
