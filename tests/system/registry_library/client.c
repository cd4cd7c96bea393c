/* SPDX-License-Identifier: MIT */
/* A C program over the installed registry library: opens, writes, reads, enumerates and deletes keys. Tells the first
 * step that went wrong, with the code that it got. */
#include <tv/tvregistry.h>
#include <tv/winreg.h>

#include <stdio.h>
#include <string.h>

static int failed(const char *step, LONG got) {
    fprintf(stderr, "%s: %d\n", step, (int)got);
    return 1;
}

static int writeAndRead(HKEY key) {
    const DWORD number = 42;
    DWORD read = 0;
    DWORD size = sizeof read;
    DWORD type = REG_NONE;
    LONG rc = RegSetValueExA(key, "Number", 0, REG_DWORD, (const BYTE *)&number, sizeof number);
    if (rc != ERROR_SUCCESS) return failed("set", rc);
    rc = RegQueryValueExA(key, "Number", NULL, &type, (LPBYTE)&read, &size);
    if (rc != ERROR_SUCCESS || read != 42 || size != 4 || type != REG_DWORD) return failed("query", rc);
    rc = RegQueryValueExA(key, "Missing", NULL, &type, (LPBYTE)&read, &size);
    return rc == ERROR_FILE_NOT_FOUND ? 0 : failed("query of what is not there", rc);
}

static int enumerate(HKEY key) {
    char name[64];
    DWORD length = sizeof name;
    LONG rc = RegEnumKeyExA(key, 0, name, &length, NULL, NULL, NULL, NULL);
    if (rc != ERROR_SUCCESS || strcmp(name, "Below") != 0 || length != 5) return failed("first sub key", rc);
    length = sizeof name;
    rc = RegEnumKeyExA(key, 1, name, &length, NULL, NULL, NULL, NULL);
    return rc == ERROR_NO_MORE_ITEMS ? 0 : failed("second sub key", rc);
}

int main(void) {
    HKEY key = 0;
    HKEY below = 0;
    DWORD disposition = 0;
    LONG rc = RegCreateKeyExA(HKEY_LOCAL_MACHINE, "Software\\Client", 0, NULL, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                              NULL, &key, &disposition);
    if (rc != ERROR_SUCCESS || disposition != REG_CREATED_NEW_KEY) return failed("create", rc);
    if (writeAndRead(key) != 0) return 1;
    rc = RegCreateKeyA(key, "Below", &below);
    if (rc != ERROR_SUCCESS) return failed("create below", rc);
    if (enumerate(key) != 0) return 1;
    (void)RegCloseKey(below);
    rc = RegDeleteKeyA(key, "Below");
    if (rc != ERROR_SUCCESS) return failed("delete below", rc);
    (void)RegCloseKey(key);
    rc = RegDeleteKeyA(HKEY_LOCAL_MACHINE, "Software\\Client");
    if (rc != ERROR_SUCCESS) return failed("delete", rc);
    rc = RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Software\\Client", 0, KEY_ALL_ACCESS, &key);
    if (rc != ERROR_FILE_NOT_FOUND) return failed("open of what was deleted", rc);
    tvRegistryCleanConnections(1);
    rc = RegCloseKey(key);
    if (rc != ERROR_REGISTRY_IO_FAILED) return failed("close after the tear-down", rc);
    puts("done");
    return 0;
}
