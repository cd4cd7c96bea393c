// SPDX-License-Identifier: MIT
// service_status: reports, and the handler of controls.
#include "tvhost/service_status.h"

#include "tvhost/events.h"

#include <mutex>

namespace {

constexpr DWORD treeSignalMs = 5'000; // a pause, or its end, of however many processes

std::mutex guard; // what follows
SERVICE_STATUS_HANDLE statusHandle;
SERVICE_STATUS status;
DWORD stopWaitMs = defaultStopTimeoutMs;

DWORD AcceptedIn(DWORD state) {
    switch (state) {
    case SERVICE_START_PENDING:
    case SERVICE_PAUSE_PENDING:
    case SERVICE_CONTINUE_PENDING: return SERVICE_ACCEPT_STOP;
    case SERVICE_RUNNING:
    case SERVICE_PAUSED: return SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    default: return 0;
    }
}

bool IsPending(DWORD state) { return state != SERVICE_RUNNING && state != SERVICE_PAUSED && state != SERVICE_STOPPED; }

// The guard is held.
void Report(DWORD state, DWORD waitMs, ExitCodes codes = {}) {
    const bool goesOn = IsPending(state) && status.dwCurrentState == state;
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCheckPoint = goesOn ? status.dwCheckPoint + 1 : 0;
    status.dwCurrentState = state;
    status.dwControlsAccepted = AcceptedIn(state);
    status.dwWin32ExitCode = codes.win32;
    status.dwServiceSpecificExitCode = codes.specific;
    status.dwWaitHint = waitMs;
    (void)SetServiceStatus(statusHandle, &status); // nobody could be told
}

void HandleControl(DWORD control) {
    const std::lock_guard<std::mutex> locked(guard);
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING, stopWaitMs);
        AskToStop();
        return;
    }
    if (control == SERVICE_CONTROL_INTERROGATE) return;
    if (control == SERVICE_CONTROL_PAUSE && status.dwCurrentState == SERVICE_RUNNING) {
        Report(SERVICE_PAUSE_PENDING, treeSignalMs);
    } else if (control == SERVICE_CONTROL_CONTINUE && status.dwCurrentState == SERVICE_PAUSED) {
        Report(SERVICE_CONTINUE_PENDING, treeSignalMs);
    }
    QueueControl(control);
}

} // namespace

void BeginReports(const char *serviceName, DWORD waitMs) {
    statusHandle = RegisterServiceCtrlHandlerA(serviceName, HandleControl);
    ReportState(SERVICE_START_PENDING, waitMs);
}

void ReportState(DWORD state, DWORD waitMs) {
    const std::lock_guard<std::mutex> locked(guard);
    if (state == SERVICE_STOP_PENDING || !IsStopAsked()) Report(state, waitMs);
}

void ReportStopped(ExitCodes codes) {
    const std::lock_guard<std::mutex> locked(guard);
    Report(SERVICE_STOPPED, 0, codes);
}

void ReportAgain() {
    const std::lock_guard<std::mutex> locked(guard);
    (void)SetServiceStatus(statusHandle, &status); // nobody could be told
}

void SetStopWait(DWORD waitMs) {
    const std::lock_guard<std::mutex> locked(guard);
    stopWaitMs = waitMs;
}
