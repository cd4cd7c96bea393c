/* SPDX-License-Identifier: MIT */
/* A service in C over the installed library: runs until it is stopped, and stops with the number of its start arguments
 * as service-specific code. */
#include <tv/winsvc.h>

#include <stdio.h>

static SERVICE_STATUS_HANDLE reports;
static DWORD arguments;

static void report(DWORD state, DWORD accepted, DWORD code) {
    SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, accepted, NO_ERROR, 0, 0, 0};
    if (code != 0) {
        status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
        status.dwServiceSpecificExitCode = code;
    }
    SetServiceStatus(reports, &status);
}

static void control(DWORD code) {
    if (code == SERVICE_CONTROL_STOP) report(SERVICE_STOPPED, 0, arguments);
}

static void run(DWORD argc, LPSTR *argv) {
    arguments = argc - 1;
    reports = RegisterServiceCtrlHandler(argv[0], control);
    report(SERVICE_RUNNING, SERVICE_ACCEPT_STOP, 0);
}

int main(void) {
    const SERVICE_TABLE_ENTRY table[] = {{"service", run}, {NULL, NULL}};
    if (StartServiceCtrlDispatcher(table)) return 0;
    fprintf(stderr, "error %u\n", (unsigned)GetLastError());
    return 1;
}
