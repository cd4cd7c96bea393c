/* SPDX-License-Identifier: MIT */
/* win32_source: sentences of service sources, compiled as C and as C++, for bytes and for UTF-16. They are never run.
 */
#include <Windows.h>
#include <process.h>
#include <strsafe.h>
#include <tchar.h>

#define SERVICE_NAME TEXT("sample")

SERVICE_STATUS_HANDLE statusHandle = NULL;
TCHAR path[MAX_PATH];
CONST TCHAR *names[] = {_T("one"), SERVICE_NAME};

VOID WINAPI Main(DWORD argc, LPTSTR *argv);
VOID __stdcall Handle(DWORD control);
__declspec(dllexport) int __cdecl Install(void);
__declspec(noreturn) void CALLBACK Leave(PVOID parameter);

VOID WINAPI Main(DWORD argc, LPTSTR *argv) {
    SERVICE_STATUS status;
    UNREFERENCED_PARAMETER(argc);
    statusHandle = RegisterServiceCtrlHandler(argv[0], Handle);
    if (!statusHandle) return;
    ZeroMemory(&status, sizeof(status));
    SetServiceStatus(statusHandle, &status);
}

int __cdecl Install(void) {
    SERVICE_TABLE_ENTRY table[2] = {{(LPTSTR)SERVICE_NAME, (LPSERVICE_MAIN_FUNCTION)Main}, {NULL, NULL}};
    HKEY key = 0;
    DWORD value = MAKEWORD(1, 2), bytes = 0;
    LPQUERY_SERVICE_CONFIG config = NULL;
    SC_HANDLE service, manager = OpenSCManager(NULL, SERVICES_ACTIVE_DATABASE, SC_MANAGER_ALL_ACCESS);
    if (manager == NULL || (HANDLE)manager == INVALID_HANDLE_VALUE) return (int)GetLastError();
    service = CreateService(manager, SERVICE_NAME, NULL, SERVICE_ALL_ACCESS | DELETE | GENERIC_READ,
                            SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, path, NULL, NULL, NULL,
                            NULL, NULL);
    if (RegOpenKeyEx(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE"), 0, KEY_WRITE, &key) == ERROR_SUCCESS) {
        RegSetValueEx(key, names[0], 0, REG_DWORD, (LPBYTE)&value, sizeof(value));
        RegCloseKey(key);
    }
    if (SUCCEEDED(StringCchCopy(path, ARRAYSIZE(path), SERVICE_NAME)) && _tcsicmp(path, names[1]) == 0) {
        QueryServiceConfig(service, config, 0, &bytes);
    }
    if (_sntprintf(path, ARRAYSIZE(path), TEXT("%s failed with %d\n"), SERVICE_NAME, 7) > 0) {
        _ftprintf(stderr, TEXT("%s"), path);
        StringCchPrintf(path, ARRAYSIZE(path), TEXT("%s"), names[0]);
        wsprintf(path, TEXT("%u"), GetLastError());
    }
    return StartServiceCtrlDispatcher(table) ? NO_ERROR : (int)GetLastError();
}
