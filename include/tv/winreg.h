/* SPDX-License-Identifier: MIT */
/*
 * winreg: the Win32 registry functions over ONC RPC, for C and C++.
 *
 * Every function has its Win32 name and signature and returns a Win32 result code (0 on success, winerror.h). What all
 * of them share:
 *   - 1016 ERROR_REGISTRY_IO_FAILED when the registry daemon (program 0x3003003C version 2 over TCP) cannot be reached,
 *     is older than 2.3.0, or does not answer;
 *   - 87 ERROR_INVALID_PARAMETER when a required pointer is null; nothing is sent then;
 *   - every other code is the daemon's own.
 * Calls are serialised on one mutex of the process; the first call of the process must not race with a second one.
 * Names and data are bytes: the W forms convert nothing and hand back no names (see each group).
 * An HKEY is 32 bits: bits 20 to 27 hold the number of the connection that the key belongs to, the rest is the
 * daemon's.
 */
#ifndef TV_WINREG_H
#define TV_WINREG_H

#include "tv/winerror.h"
#include "tv/wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef uint32_t HKEY;
typedef HKEY *PHKEY;

#define HKEY_CLASSES_ROOT ((HKEY)0x80000000u)
#define HKEY_CURRENT_USER ((HKEY)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)0x80000002u)
#define HKEY_USERS ((HKEY)0x80000003u)
#define HKEY_PERFORMANCE_DATA ((HKEY)0x80000004u)
#define HKEY_CURRENT_CONFIG ((HKEY)0x80000005u)
#define HKEY_DYN_DATA ((HKEY)0x80000006u)

#define KEY_ALL_ACCESS 0xF003Fu

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_DWORD_BIG_ENDIAN 5u
#define REG_LINK 6u
#define REG_MULTI_SZ 7u

#define REG_OPTION_NON_VOLATILE 0u
#define REG_OPTION_VOLATILE 1u

/* Dispositions of RegCreateKeyEx. */
#define REG_CREATED_NEW_KEY 1u
#define REG_OPENED_EXISTING_KEY 2u

/* One entry of RegQueryMultipleValuesA: the name is given, the other three are filled. */
typedef struct VALENTA {
    LPSTR ve_valuename;
    DWORD ve_valuelen;     /* bytes of data */
    DWORD_PTR ve_valueptr; /* address of the data inside the caller's buffer */
    DWORD ve_type;
} VALENTA, *PVALENTA;

typedef struct VALENTW {
    LPWSTR ve_valuename;
    DWORD ve_valuelen;
    DWORD_PTR ve_valueptr;
    DWORD ve_type;
} VALENTW, *PVALENTW;

LONG RegCloseKey(HKEY hKey);
LONG RegConnectRegistryA(LPCSTR lpMachineName, HKEY hKey, PHKEY phkResult);
LONG RegConnectRegistryW(LPCWSTR lpMachineName, HKEY hKey, PHKEY phkResult);
LONG RegCreateKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult);
LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
LONG RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition);
LONG RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition);
LONG RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey);
LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);
LONG RegDeleteValueA(HKEY hKey, LPCSTR lpValueName);
LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);
LONG RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName);
LONG RegEnumKeyW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, DWORD cchName);
LONG RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime);
LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPWSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime);
LONG RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
LONG RegFlushKey(HKEY hKey);
LONG RegGetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                       LPDWORD lpcbSecurityDescriptor);
LONG RegLoadKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpFile);
LONG RegLoadKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpFile);
LONG RegNotifyChangeKeyValue(HKEY hKey, BOOL bWatchSubtree, DWORD dwNotifyFilter, HANDLE hEvent, BOOL fAsynchronous);
LONG RegOpenKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult);
LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
LONG RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LONG RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
LONG RegQueryValueA(HKEY hKey, LPCSTR lpSubKey, LPSTR lpValue, LONG *lpcbValue);
LONG RegQueryValueW(HKEY hKey, LPCWSTR lpSubKey, LPWSTR lpValue, LONG *lpcbValue);
LONG RegQueryMultipleValuesA(HKEY hKey, PVALENTA val_list, DWORD num_vals, LPSTR lpValueBuf, LPDWORD ldwTotsize);
LONG RegQueryMultipleValuesW(HKEY hKey, PVALENTW val_list, DWORD num_vals, LPWSTR lpValueBuf, LPDWORD ldwTotsize);
LONG RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData);
LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData);
LONG RegReplaceKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpNewFile, LPCSTR lpOldFile);
LONG RegReplaceKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpNewFile, LPCWSTR lpOldFile);
LONG RegRestoreKeyA(HKEY hKey, LPCSTR lpFile, DWORD dwFlags);
LONG RegRestoreKeyW(HKEY hKey, LPCWSTR lpFile, DWORD dwFlags);
LONG RegSaveKeyA(HKEY hKey, LPCSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
LONG RegSaveKeyW(HKEY hKey, LPCWSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
LONG RegSetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor);
LONG RegSetValueA(HKEY hKey, LPCSTR lpSubKey, DWORD dwType, LPCSTR lpData, DWORD cbData);
LONG RegSetValueW(HKEY hKey, LPCWSTR lpSubKey, DWORD dwType, LPCWSTR lpData, DWORD cbData);
LONG RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData);
LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData);
LONG RegUnLoadKeyA(HKEY hKey, LPCSTR lpSubKey);
LONG RegUnLoadKeyW(HKEY hKey, LPCWSTR lpSubKey);

/* Reads the registry daemon's version. Each pointer may be null. 1016 when there is no connection yet. */
LONG RegQueryVersionInfo(LPDWORD major, LPDWORD minor, LPDWORD patch);

/* Tells the registry daemon about this process: mode 0 after connecting, 1 before leaving, else the caller's own.
 * Returns the daemon's status; 1016 without connection or reply (-1 for mode 2 without reply); 1 for mode 0 once the
 * connections have been torn down. */
LONG RegPingDaemon(int mode);

/* Opens (creating what is missing) the runtime's own base key, HKEY_LOCAL_MACHINE\Software\Corvane\Tarvo.
 * *result: a new handle that the caller closes with RegCloseKey. */
LONG tvGetBaseRegistryKey(PHKEY result);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
