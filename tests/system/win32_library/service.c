/* SPDX-License-Identifier: MIT */
/* A service as it is written for Win32, C and C++ alike: a worker thread that ticks, events to pause and to stop it. It
 * takes "say TEXT" too, which shows what it is without the daemon. */
#include <windows.h>

#include <process.h>
#include <stdio.h>
#include <tchar.h>

static TCHAR name[] = TEXT("example");
static SERVICE_STATUS status;
static SERVICE_STATUS_HANDLE reports;
static HANDLE stop, go;
static CRITICAL_SECTION section;
static LONG ticks;

static VOID Report(DWORD state, DWORD code) {
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;
    status.dwWin32ExitCode = code;
    SetServiceStatus(reports, &status);
}

static unsigned __stdcall Tick(void *parameter) {
    UNREFERENCED_PARAMETER(parameter);
    while (WaitForSingleObject(stop, 10) == WAIT_TIMEOUT) {
        if (WaitForSingleObject(go, 0) != WAIT_OBJECT_0) continue;
        EnterCriticalSection(&section);
        ++ticks;
        LeaveCriticalSection(&section);
    }
    return 17;
}

static VOID WINAPI Control(DWORD control) {
    switch (control) {
    case SERVICE_CONTROL_STOP:
        Report(SERVICE_STOP_PENDING, NO_ERROR);
        SetEvent(stop);
        break;
    case SERVICE_CONTROL_PAUSE:
        ResetEvent(go);
        Report(SERVICE_PAUSED, NO_ERROR);
        break;
    case SERVICE_CONTROL_CONTINUE:
        SetEvent(go);
        Report(SERVICE_RUNNING, NO_ERROR);
        break;
    default: Report(status.dwCurrentState, NO_ERROR);
    }
}

/* Stops with success if the worker has ticked and ended as it should. */
static VOID WINAPI ServiceMain(DWORD argc, LPTSTR *argv) {
    HANDLE worker;
    DWORD code = 0;
    UNREFERENCED_PARAMETER(argc);
    reports = RegisterServiceCtrlHandler(argv[0], Control);
    if (reports == NULL) return;
    InitializeCriticalSection(&section);
    stop = CreateEvent(NULL, TRUE, FALSE, NULL);
    go = CreateEvent(NULL, TRUE, TRUE, NULL);
    worker = (HANDLE)_beginthreadex(NULL, 0, Tick, NULL, 0, NULL);
    Report(SERVICE_RUNNING, NO_ERROR);
    WaitForSingleObject(worker, INFINITE);
    GetExitCodeThread(worker, &code);
    CloseHandle(worker);
    CloseHandle(stop);
    CloseHandle(go);
    DeleteCriticalSection(&section);
    Report(SERVICE_STOPPED, ticks > 0 && code == 17 ? NO_ERROR : ERROR_PROCESS_ABORTED);
}

static VOID PrintError(const char *what) {
    char text[256];
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, NULL, GetLastError(),
                   MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text, sizeof text, NULL);
    printf("%s: %u %s", what, (unsigned)GetLastError(), text);
}

int main(int argc, char **argv) {
    SERVICE_TABLE_ENTRY table[] = {{name, ServiceMain}, {NULL, NULL}};
    if (argc > 2) {
        HANDLE event = CreateEventA(NULL, FALSE, FALSE, argv[2]);
        printf("%s\n", argv[2]);
        SetLastError(0);
        if (!CloseServiceHandle(NULL)) PrintError("service");
        SetLastError(0);
        if (!CloseHandle(event) || !CloseHandle(event)) PrintError("base");
        SetLastError((DWORD)RegOpenKeyEx(HKEY_LOCAL_MACHINE, NULL, 0, KEY_READ, NULL));
        PrintError("registry");
        return 0;
    }
    if (StartServiceCtrlDispatcher(table)) return 0;
    PrintError("dispatcher");
    return 1;
}
