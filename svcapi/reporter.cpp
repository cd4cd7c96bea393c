// SPDX-License-Identifier: MIT
// reporter: sends the states of this process's services to the daemon.
//
// Of each service only the latest state is sent. A report that fails is repeated each second, so that a restarted
// daemon hears of services that outlived it; their numbers are looked up again by name then.
#include "svcapi/calls.h"
#include "svcapi/pid_file.h"
#include "svcapi/process_stat.h"
#include "svcapi/runtime.h"

#include <algorithm>

namespace {

constexpr auto retryInterval = std::chrono::seconds(1);
constexpr DWORD longestWaitHintMs = 2'147'483'000; // whole seconds, and not negative on the wire

StartedService *FindUnreported(ServiceRuntime &runtime) {
    const auto found = std::find_if(runtime.services.begin(), runtime.services.end(),
                                    [](const StartedService &service) { return service.changes != service.reported; });
    return found != runtime.services.end() ? &*found : nullptr;
}

DWORD LookUpIndex(DaemonLink &link, const std::string &name, std::int32_t *index) {
    const DWORD rc = OpenRecord(link, name.c_str(), index);
    if (rc == ERROR_SUCCESS) (void)CloseRecord(link, *index); // only the number was wanted
    return rc;
}

// Sends one report. *index and *restarts: the service's number and the daemon that gave it, renewed after a restart.
DWORD Report(DaemonLink &link, const std::string &name, const SERVICE_STATUS &status, std::int32_t *index,
             std::uint32_t *restarts) {
    const std::lock_guard<std::timed_mutex> busy(link.busy);
    DWORD rc = Connect(link);
    if (rc == ERROR_SUCCESS && link.restarts != *restarts) rc = LookUpIndex(link, name, index);
    if (rc != ERROR_SUCCESS) return rc;
    *restarts = link.restarts;
    return SetRecordStatus(link, *index, status);
}

// Sends a report, unless a later process has taken the service over: the daemon knows the two by one name, and would
// take the end of this one for that one's.
DWORD ReportUnlessTakenOver(DaemonLink &link, const std::string &name, const SERVICE_STATUS &status, bool holdsHint,
                            std::int32_t *index, std::uint32_t *restarts) {
    if (holdsHint && FindOtherRun(name) != 0) return ERROR_SUCCESS;
    // Before anybody can hear of the end, and start the service again.
    if (holdsHint && status.dwCurrentState == SERVICE_STOPPED) MarkPidFileStopped(name);
    return Report(link, name, status, index, restarts);
}

bool IsDaemonUnreachable(DWORD rc) {
    return rc == RPC_S_SERVER_UNAVAILABLE || rc == RPC_S_CALL_FAILED || rc == ERROR_TIMEOUT;
}

// Notes the moments of a run. Few bytes in memory's file system: nobody waits for it.
void NoteRun(StartedService &service) {
    const DWORD state = service.status.dwCurrentState;
    const bool runsNow = state == SERVICE_RUNNING && service.run.runningMs == 0;
    const bool endsNow = state == SERVICE_STOPPED && service.run.endedMs == 0;
    if (!service.holdsHint || (!runsNow && !endsNow)) return;
    (runsNow ? service.run.runningMs : service.run.endedMs) = MsSinceBoot();
    if (endsNow) service.run.exitCode = service.status.dwWin32ExitCode;
    WriteRunRecord(service.name, service.run);
}

void NoteHeard(StartedService &service) {
    if (!service.holdsHint || service.run.heardMs != 0) return;
    service.run.heardMs = MsSinceBoot();
    WriteRunRecord(service.name, service.run);
}

} // namespace

ServiceRuntime &Runtime() {
    static ServiceRuntime &runtime = *new ServiceRuntime;
    return runtime;
}

SERVICE_STATUS WithSafeWaitHint(SERVICE_STATUS status) {
    const bool pending = status.dwCurrentState != SERVICE_RUNNING && status.dwCurrentState != SERVICE_PAUSED &&
                         status.dwCurrentState != SERVICE_STOPPED;
    const DWORD hintMs = std::min(status.dwWaitHint, longestWaitHintMs);
    status.dwWaitHint = pending ? (hintMs + 999) / 1000 * 1000 : 0;
    return status;
}

void LeaveHint(StartedService &service) {
    service.holdsHint = !WritePidFile(service.name).empty();
    if (!service.holdsHint) return;
    service.run = RunOfThisProcess();
    BeginRunRecord(service.name, service.run);
}

void ChangeStatus(ServiceRuntime &runtime, StartedService &service, const SERVICE_STATUS &status) {
    service.status = WithSafeWaitHint(status);
    ++service.changes;
    NoteRun(service);
    runtime.changed.notify_all();
}

bool AllReported(const ServiceRuntime &runtime) {
    return std::all_of(runtime.services.begin(), runtime.services.end(),
                       [](const StartedService &service) { return service.changes == service.reported; });
}

void ReportStates(ServiceRuntime &runtime) {
    DaemonLink link;
    link.host = "localhost";
    std::unique_lock<std::mutex> locked(runtime.guard);
    for (;;) {
        runtime.changed.wait(locked, [&] { return runtime.ending || !AllReported(runtime); });
        StartedService *const service = FindUnreported(runtime);
        if (service == nullptr) return;
        const std::string name = service->name;
        const SERVICE_STATUS status = service->status;
        const std::uint64_t change = service->changes;
        std::int32_t index = service->index;
        std::uint32_t restarts = service->restarts;
        const bool holdsHint = service->holdsHint;

        locked.unlock();
        const DWORD rc = ReportUnlessTakenOver(link, name, status, holdsHint, &index, &restarts);
        locked.lock();

        runtime.daemonGone = IsDaemonUnreachable(rc);
        if (!runtime.daemonGone) {
            service->index = index;
            service->restarts = restarts;
            service->reported = change;
            NoteHeard(*service);
        } else if (runtime.ending) {
            return;
        } else {
            runtime.changed.wait_for(locked, retryInterval, [&] { return runtime.ending; });
        }
        runtime.changed.notify_all();
    }
}
