/* SPDX-License-Identifier: MIT */
/* A C program over the installed service library: creates the service of service.c, starts it with two arguments, waits
 * until it runs, stops it, reads how it ended and deletes it. Tells the first step that went wrong, with its code.
 *   client IMAGE */
#include <tv/winsvc.h>

#include <stdio.h>
#include <unistd.h>

static int failed(const char *step) {
    fprintf(stderr, "%s: %u\n", step, (unsigned)GetLastError());
    return 1;
}

static BOOL waitFor(SC_HANDLE service, DWORD state, SERVICE_STATUS *status) {
    int tries;
    for (tries = 0; tries < 500; ++tries) {
        if (!tvQueryServiceStatusPassive(service, status, NULL)) return FALSE;
        if (status->dwCurrentState == state) return TRUE;
        usleep(20000);
    }
    SetLastError(ERROR_TIMEOUT);
    return FALSE;
}

static int use(SC_HANDLE service) {
    LPCSTR arguments[] = {"one", "two"};
    SERVICE_STATUS status;
    if (!StartService(service, 2, arguments)) return failed("start");
    if (!waitFor(service, SERVICE_RUNNING, &status)) return failed("wait until it runs");
    if (StartService(service, 0, NULL) || GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        return failed("second start");
    }
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) return failed("stop");
    if (!waitFor(service, SERVICE_STOPPED, &status)) return failed("wait until it is stopped");
    if (!QueryServiceStatus(service, &status) || status.dwServiceSpecificExitCode != 2) return failed("exit code");
    return DeleteService(service) ? 0 : failed("delete");
}

int main(int argc, char **argv) {
    SC_HANDLE manager = OpenSCManager(NULL, SERVICES_ACTIVE_DATABASE, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE other;
    SC_HANDLE service;
    if (manager == NULL) return failed("open");
    if (argc != 2) return 2;
    /* Takes the daemon's record 0, in which an exit code cannot be seen without touching it. */
    other = CreateService(manager, "first", NULL, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                          SERVICE_ERROR_NORMAL, argv[1], NULL, NULL, NULL, NULL, NULL);
    service = CreateService(manager, "service", "A service in C", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                            SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, argv[1], NULL, NULL, NULL, NULL, NULL);
    if (other == NULL || service == NULL) return failed("create");
    if (use(service) != 0) return 1;
    if (!CloseServiceHandle(service)) return failed("close");
    if (OpenService(manager, "service", SERVICE_ALL_ACCESS) != NULL) return failed("open of what was deleted");
    if (GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) return failed("code of that");
    if (!CloseServiceHandle(other) || !CloseServiceHandle(manager)) return failed("close of the rest");
    puts("done");
    return 0;
}
