// SPDX-License-Identifier: MIT
// entry_points: the 49 Win32 registry functions, the dispatch table behind them, and the runtime's base key.
//
// Every function takes the registry mutex, calls its slot of the table and returns the slot's result as it is.
// Thread: any, after the first call of the process has returned.
#include "registry/connection.h"
#include "registry/operations.h"
#include "registry/tvpthread.h"
#include "tv/winerror.h"

namespace {

#define ROW(slot, operation, function) .operation = operation,
constexpr RegistryOperations operations = {REGISTRY_OPERATIONS(ROW)};

} // namespace

RegistryOperations _tvRegistryAPISet[2] = {operations, {}};
int tvOSID = 0;

HKEY hksw = 0;
HKEY hkco = 0;
int bCached = 0;

namespace {

template <typename... Parameters, typename... Arguments>
LONG Forward(LONG (*RegistryOperations::*slot)(Parameters...), Arguments... arguments) {
    LockRegistryMutex();
    const LONG rc = (_tvRegistryAPISet[tvOSID].*slot)(arguments...);
    UnlockRegistryMutex();
    return rc;
}

LONG CreateBaseKey(HKEY parent, const char *name, PHKEY result) {
    DWORD disposition = 0; // not looked at
    return RegCreateKeyExA(parent, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, result, &disposition);
}

} // namespace

LONG RegCloseKey(HKEY hKey) { return Forward(&RegistryOperations::reg_close_key, hKey); }

LONG RegConnectRegistryA(LPCSTR lpMachineName, HKEY hKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_connect_registry_a, lpMachineName, hKey, phkResult);
}

LONG RegConnectRegistryW(LPCWSTR lpMachineName, HKEY hKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_connect_registry_w, lpMachineName, hKey, phkResult);
}

LONG RegCreateKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_create_key_a, hKey, lpSubKey, phkResult);
}

LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_create_key_w, hKey, lpSubKey, phkResult);
}

LONG RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition) {
    return Forward(&RegistryOperations::reg_create_key_ex_a, hKey, lpSubKey, Reserved, lpClass, dwOptions, samDesired,
                   lpSecurityAttributes, phkResult, lpdwDisposition);
}

LONG RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition) {
    return Forward(&RegistryOperations::reg_create_key_ex_w, hKey, lpSubKey, Reserved, lpClass, dwOptions, samDesired,
                   lpSecurityAttributes, phkResult, lpdwDisposition);
}

LONG RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey) {
    return Forward(&RegistryOperations::reg_delete_key_a, hKey, lpSubKey);
}

LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    return Forward(&RegistryOperations::reg_delete_key_w, hKey, lpSubKey);
}

LONG RegDeleteValueA(HKEY hKey, LPCSTR lpValueName) {
    return Forward(&RegistryOperations::reg_delete_value_a, hKey, lpValueName);
}

LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
    return Forward(&RegistryOperations::reg_delete_value_w, hKey, lpValueName);
}

LONG RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName) {
    return Forward(&RegistryOperations::reg_enum_key_a, hKey, dwIndex, lpName, cchName);
}

LONG RegEnumKeyW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, DWORD cchName) {
    return Forward(&RegistryOperations::reg_enum_key_w, hKey, dwIndex, lpName, cchName);
}

LONG RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime) {
    return Forward(&RegistryOperations::reg_enum_key_ex_a, hKey, dwIndex, lpName, lpcName, lpReserved, lpClass,
                   lpcClass, lpftLastWriteTime);
}

LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPWSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime) {
    return Forward(&RegistryOperations::reg_enum_key_ex_w, hKey, dwIndex, lpName, lpcName, lpReserved, lpClass,
                   lpcClass, lpftLastWriteTime);
}

LONG RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    return Forward(&RegistryOperations::reg_enum_value_a, hKey, dwIndex, lpValueName, lpcValueName, lpReserved, lpType,
                   lpData, lpcbData);
}

LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    return Forward(&RegistryOperations::reg_enum_value_w, hKey, dwIndex, lpValueName, lpcValueName, lpReserved, lpType,
                   lpData, lpcbData);
}

LONG RegFlushKey(HKEY hKey) { return Forward(&RegistryOperations::reg_flush_key, hKey); }

LONG RegGetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                       LPDWORD lpcbSecurityDescriptor) {
    return Forward(&RegistryOperations::reg_get_key_security, hKey, SecurityInformation, pSecurityDescriptor,
                   lpcbSecurityDescriptor);
}

LONG RegLoadKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpFile) {
    return Forward(&RegistryOperations::reg_load_key_a, hKey, lpSubKey, lpFile);
}

LONG RegLoadKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpFile) {
    return Forward(&RegistryOperations::reg_load_key_w, hKey, lpSubKey, lpFile);
}

LONG RegNotifyChangeKeyValue(HKEY hKey, BOOL bWatchSubtree, DWORD dwNotifyFilter, HANDLE hEvent, BOOL fAsynchronous) {
    return Forward(&RegistryOperations::reg_notify_change_key_value, hKey, bWatchSubtree, dwNotifyFilter, hEvent,
                   fAsynchronous);
}

LONG RegOpenKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_open_key_a, hKey, lpSubKey, phkResult);
}

LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_open_key_w, hKey, lpSubKey, phkResult);
}

LONG RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_open_key_ex_a, hKey, lpSubKey, ulOptions, samDesired, phkResult);
}

LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult) {
    return Forward(&RegistryOperations::reg_open_key_ex_w, hKey, lpSubKey, ulOptions, samDesired, phkResult);
}

LONG RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
    return Forward(&RegistryOperations::reg_query_info_key_a, hKey, lpClass, lpcClass, lpReserved, lpcSubKeys,
                   lpcMaxSubKeyLen, lpcMaxClassLen, lpcValues, lpcMaxValueNameLen, lpcMaxValueLen,
                   lpcbSecurityDescriptor, lpftLastWriteTime);
}

LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
    return Forward(&RegistryOperations::reg_query_info_key_w, hKey, lpClass, lpcClass, lpReserved, lpcSubKeys,
                   lpcMaxSubKeyLen, lpcMaxClassLen, lpcValues, lpcMaxValueNameLen, lpcMaxValueLen,
                   lpcbSecurityDescriptor, lpftLastWriteTime);
}

LONG RegQueryValueA(HKEY hKey, LPCSTR lpSubKey, LPSTR lpValue, LONG *lpcbValue) {
    return Forward(&RegistryOperations::reg_query_value_a, hKey, lpSubKey, lpValue, lpcbValue);
}

LONG RegQueryValueW(HKEY hKey, LPCWSTR lpSubKey, LPWSTR lpValue, LONG *lpcbValue) {
    return Forward(&RegistryOperations::reg_query_value_w, hKey, lpSubKey, lpValue, lpcbValue);
}

LONG RegQueryMultipleValuesA(HKEY hKey, PVALENTA val_list, DWORD num_vals, LPSTR lpValueBuf, LPDWORD ldwTotsize) {
    return Forward(&RegistryOperations::reg_query_multiple_values_a, hKey, val_list, num_vals, lpValueBuf, ldwTotsize);
}

LONG RegQueryMultipleValuesW(HKEY hKey, PVALENTW val_list, DWORD num_vals, LPWSTR lpValueBuf, LPDWORD ldwTotsize) {
    return Forward(&RegistryOperations::reg_query_multiple_values_w, hKey, val_list, num_vals, lpValueBuf, ldwTotsize);
}

LONG RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData) {
    return Forward(&RegistryOperations::reg_query_value_ex_a, hKey, lpValueName, lpReserved, lpType, lpData, lpcbData);
}

LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData) {
    return Forward(&RegistryOperations::reg_query_value_ex_w, hKey, lpValueName, lpReserved, lpType, lpData, lpcbData);
}

LONG RegReplaceKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpNewFile, LPCSTR lpOldFile) {
    return Forward(&RegistryOperations::reg_replace_key_a, hKey, lpSubKey, lpNewFile, lpOldFile);
}

LONG RegReplaceKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpNewFile, LPCWSTR lpOldFile) {
    return Forward(&RegistryOperations::reg_replace_key_w, hKey, lpSubKey, lpNewFile, lpOldFile);
}

LONG RegRestoreKeyA(HKEY hKey, LPCSTR lpFile, DWORD dwFlags) {
    return Forward(&RegistryOperations::reg_restore_key_a, hKey, lpFile, dwFlags);
}

LONG RegRestoreKeyW(HKEY hKey, LPCWSTR lpFile, DWORD dwFlags) {
    return Forward(&RegistryOperations::reg_restore_key_w, hKey, lpFile, dwFlags);
}

LONG RegSaveKeyA(HKEY hKey, LPCSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    return Forward(&RegistryOperations::reg_save_key_a, hKey, lpFile, lpSecurityAttributes);
}

LONG RegSaveKeyW(HKEY hKey, LPCWSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    return Forward(&RegistryOperations::reg_save_key_w, hKey, lpFile, lpSecurityAttributes);
}

LONG RegSetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor) {
    return Forward(&RegistryOperations::reg_set_key_security, hKey, SecurityInformation, pSecurityDescriptor);
}

LONG RegSetValueA(HKEY hKey, LPCSTR lpSubKey, DWORD dwType, LPCSTR lpData, DWORD cbData) {
    return Forward(&RegistryOperations::reg_set_value_a, hKey, lpSubKey, dwType, lpData, cbData);
}

LONG RegSetValueW(HKEY hKey, LPCWSTR lpSubKey, DWORD dwType, LPCWSTR lpData, DWORD cbData) {
    return Forward(&RegistryOperations::reg_set_value_w, hKey, lpSubKey, dwType, lpData, cbData);
}

LONG RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData) {
    return Forward(&RegistryOperations::reg_set_value_ex_a, hKey, lpValueName, Reserved, dwType, lpData, cbData);
}

LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData) {
    return Forward(&RegistryOperations::reg_set_value_ex_w, hKey, lpValueName, Reserved, dwType, lpData, cbData);
}

LONG RegUnLoadKeyA(HKEY hKey, LPCSTR lpSubKey) {
    return Forward(&RegistryOperations::reg_unload_key_a, hKey, lpSubKey);
}

LONG RegUnLoadKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    return Forward(&RegistryOperations::reg_unload_key_w, hKey, lpSubKey);
}

LONG RegQueryVersionInfo(LPDWORD major, LPDWORD minor, LPDWORD patch) {
    return Forward(&RegistryOperations::reg_query_version_info, major, minor, patch);
}

// The mode 0 ping belongs to connecting: after a tear-down there is nothing to announce.
LONG RegPingDaemon(int mode) {
    LockRegistryMutex();
    const bool tooLate = mode == 0 && connectionTableDestroyed != 0;
    const LONG rc = tooLate ? 1 : _tvRegistryAPISet[tvOSID].reg_ping_daemon(mode);
    UnlockRegistryMutex();
    return rc;
}

// Deliberate: the two upper keys are never closed, not even when a failure makes the next call open "Software" anew;
// other callers may still hold what the cache gave them.
LONG tvGetBaseRegistryKey(PHKEY result) {
    if (bCached == 0) {
        LONG rc = CreateBaseKey(HKEY_LOCAL_MACHINE, "Software", &hksw);
        if (rc != ERROR_SUCCESS) return rc;
        rc = CreateBaseKey(hksw, "Corvane", &hkco);
        bCached = rc == ERROR_SUCCESS ? 1 : 0;
        if (rc != ERROR_SUCCESS) return rc;
    }
    return CreateBaseKey(hkco, "Tarvo", result);
}
