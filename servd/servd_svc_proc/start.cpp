// SPDX-License-Identifier: MIT
// start: brings a service up in a new process, reaches the process, and hands it its start request.
//
//   state            event                             next state
//   stopped          its new process can be reached    start pending, process id recorded
//   start pending    start request answered            start pending, a wait hint, the rest of the status cleared
//
// Owns:    nothing.
// Reads:   "ImagePath".
// Thread:  main thread only.
// Deliberate: a sibling in a shared process that can be reached never takes the start, a new process does, and the
// client handle to the sibling is left over; a process that cannot be reached in time is left running and
// unrecorded.
#include "servd/servd_svc_proc/start.h"

#include "rpc/dial.h"
#include "servd/limits.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/kept_clients.h"
#include "servd/servd_svc_proc/process.h"
#include "servd/servd_svc_proc/reaper.h"
#include "servd/servd_svc_proc/startup.h"
#include "servd/servd_svc_proc/status.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_clnt.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"
#include "util/monotonic_ms.h"

#include <algorithm>

namespace {

constexpr std::int64_t leastRegistrationPauseUs = 200;
constexpr std::int64_t registrationPauseShare = 16; // a pause is one part in so many of the time that has passed

// This host as service processes are dialled; its name is resolved once a start.
struct Host {
    bool known;
    in_addr address;
};

Host ResolveThisHost() {
    Host host = {};
    host.known = ResolveHost(scmhostname, &host.address);
    return host;
}

CLIENT *DialProcess(const Host &host, std::int32_t processId) {
    if (!host.known) return nullptr;
    return WithReplyLimit(DialProgram(host.address, ServiceProgram(processId), serviceProgramVersion, attemptLimitMs),
                          maxShortReplyBytes);
}

// Dials at once, then up to `retries` times more, each after a second's sleep. waitedMs: what the process has been
// waited for already, which shortens the first sleep.
CLIENT *DialProcessWithRetries(const Host &host, std::int32_t processId, int retries, std::int64_t waitedMs) {
    CLIENT *client = DialProcess(host, processId);
    for (; client == nullptr && retries > 0; retries--) {
        SleepMs(std::max<std::int64_t>(retryPauseMs - waitedMs, 0));
        waitedMs = 0;
        client = DialProcess(host, processId);
    }
    return client;
}

// --- shared processes ---

// The service of an image path that runs, null when there is none.
const ServiceDatabaseEntry *RunningSibling(const GroupMember *members) {
    for (; members != nullptr; members = members->next) {
        if (svcdb[members->serviceIndex].status.dwCurrentState != SERVICE_STOPPED) return &svcdb[members->serviceIndex];
    }
    return nullptr;
}

// Whether every announced wait among the services of an image path has passed.
bool HaveAllDeadlinesPassed(const GroupMember *members) {
    const WallTime now = WallTimeNow();
    for (; members != nullptr; members = members->next) {
        if (!HasDeadlinePassed(svcdb[members->serviceIndex], now)) return false;
    }
    return true;
}

// Looks for the process that other services of this image path run in. Returns 1053 when there is one that cannot be
// reached but may still come round; 0 when the service is to get a process of its own, which is so in any other case.
Win32Code CheckSharedProcess(ServiceDatabaseEntry &entry, const Host &host, TextBuffer &imagePath) {
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

    CLIENT *client = DialProcessWithRetries(host, sibling->processId, sharedProcessRetries, 0);
    if (client != nullptr) {
        // Deliberate: the client is neither used nor destroyed, and as the service is still stopped a new process
        // replaces the process id. Each such start thus keeps one connection to the sibling open.
        KeepClient(client);
        entry.processId = sibling->processId;
        return ERROR_SUCCESS;
    }
    // Deliberate: stopped services of the list count, too; one with a wait hint of 0 is enough for 1053.
    if (!HaveAllDeadlinesPassed(members)) return ERROR_SERVICE_REQUEST_TIMEOUT;
    for (; members != nullptr; members = members->next) {
        ServiceFailed(members->serviceIndex);
    }
    return ERROR_SUCCESS;
}

// --- the new process ---

// Waits a moment for the program of a new process to appear in the port mapper. Without it the first attempt to reach
// the process would always come too early, and the second a whole second later. A port mapper that hangs is waited for
// no longer. Looks come the closer the less time has passed: what is waited in vain is a small part of the start, and a
// process that takes long costs few of them.
void AwaitRegistration(const Host &host, pid_t processId) {
    if (!host.known) return;
    const std::int64_t beginUs = MonotonicUs();
    const std::int64_t waitUs = registrationWaitMs * 1000;
    const RpcClient portMapper(DialPortMapper(host.address, registrationWaitMs));
    if (portMapper == nullptr) return;
    for (;;) {
        const int budgetMs = registrationWaitMs - static_cast<int>((MonotonicUs() - beginUs) / 1000);
        if (PortOfProgram(portMapper.get(), ServiceProgram(processId), serviceProgramVersion, budgetMs) != 0) return;
        const std::int64_t passedUs = MonotonicUs() - beginUs;
        if (passedUs >= waitUs) return;
        SleepUs(std::min(std::max(passedUs / registrationPauseShare, leastRegistrationPauseUs), waitUs - passedUs));
    }
}

// Starts the service's program and reaches its process. Returns 0 and the client; 3, 6, or 1053 when the process could
// not be reached in time.
Win32Code StartProcess(ServiceDatabaseEntry &entry, const Host &host, TextBuffer &imagePath, RpcClient *client) {
    pid_t processId = 0;
    const Win32Code rc = LaunchService(entry.name, imagePath, &processId);
    if (rc != ERROR_SUCCESS) return rc;
    const std::int64_t forkMs = MonotonicMs();
    AwaitRegistration(host, processId);
    client->reset(DialProcessWithRetries(
        host, processId, binitializing != 0 ? newProcessRetriesAtStartUp : newProcessRetries, MonotonicMs() - forkMs));
    if (*client == nullptr) return ERROR_SERVICE_REQUEST_TIMEOUT; // 1053
    entry.status.dwCurrentState = SERVICE_START_PENDING;
    entry.processId = processId;
    return ERROR_SUCCESS;
}

} // namespace

Win32Code QuickStartService(std::int32_t index, svc_arglist_t *arglist, std::int32_t argc) {
    ServiceDatabaseEntry &entry = svcdb[index];
    TakeLeftEnds();
    if (entry.status.dwCurrentState != SERVICE_STOPPED) {
        return ERROR_SERVICE_ALREADY_RUNNING; // no process to hand it to
    }
    const Host host = ResolveThisHost();
    TextBuffer imagePath = {}; // what cannot be read into it leaves it as it is
    if ((entry.type & SERVICE_WIN32_SHARE_PROCESS) != 0) {
        const Win32Code rc = CheckSharedProcess(entry, host, imagePath);
        if (rc != ERROR_SUCCESS) return rc;
    }
    RpcClient client;
    const Win32Code rc = StartProcess(entry, host, imagePath, &client);
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
    const Win32Code status = answer->status;
    FreeRecord(answer);
    return status;
}
