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
 * Names and data are bytes. The W forms convert nothing: a name that is an argument is left out, and no names come
 * back. What is left of each stands beside it.
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

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY 0x0010u
#define KEY_CREATE_LINK 0x0020u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_EXECUTE 0x20019u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_DWORD_BIG_ENDIAN 5u
#define REG_LINK 6u
#define REG_MULTI_SZ 7u
#define REG_QWORD 11u

#define REG_OPTION_NON_VOLATILE 0u
#define REG_OPTION_VOLATILE 1u

/* Flags of RegRestoreKey. */
#define REG_WHOLE_HIVE_VOLATILE 1u
#define REG_REFRESH_HIVE 2u
#define REG_NO_LAZY_FLUSH 4u
#define REG_FORCE_RESTORE 8u

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

/* Closes a key. */
LONG RegCloseKey(HKEY hKey);

/* Connects to the registry daemon of a machine and gives one of its root keys.
 *   lpMachineName   taken as given; null or this host's name: the local daemon; empty: 1016
 *   phkResult       the root key with the connection's number in it
 * W: 2, nothing is connected. */
LONG RegConnectRegistryA(LPCSTR lpMachineName, HKEY hKey, PHKEY phkResult);
LONG RegConnectRegistryW(LPCWSTR lpMachineName, HKEY hKey, PHKEY phkResult);

/* Opens a sub key, creating what is missing. *phkResult is stored whatever code the daemon answers; the caller closes
 * it after success. A null or empty sub key is the key itself; RegCreateKeyExA refuses a null one with 87.
 *   lpClass           sent as it is, even when empty; may be null
 *   lpdwDisposition   may be null; REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY
 * Reserved, access and security attributes are not sent. RegCreateKeyW: the key itself. RegCreateKeyExW: 87. */
LONG RegCreateKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult);
LONG RegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
LONG RegCreateKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD Reserved, LPSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition);
LONG RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                     LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult, LPDWORD lpdwDisposition);

/* Deletes a sub key. W: 87. */
LONG RegDeleteKeyA(HKEY hKey, LPCSTR lpSubKey);
LONG RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);

/* Deletes a value; null: the unnamed one. W: the unnamed one. */
LONG RegDeleteValueA(HKEY hKey, LPCSTR lpValueName);
LONG RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);

/* Gives the name of the sub key with this index; 259 behind the last one.
 *   lpName    the name is copied as the daemon sends it, terminator included; honouring cchName is the daemon's work
 * W: the code alone. */
LONG RegEnumKeyA(HKEY hKey, DWORD dwIndex, LPSTR lpName, DWORD cchName);
LONG RegEnumKeyW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, DWORD cchName);

/* The same with class and time of the last write. One of lpName, lpClass and lpftLastWriteTime must be given.
 *   lpcName, lpcClass   in: bytes of the buffer; out: bytes of the text without its terminator; may be null
 * W: doubles the counts on entry; codes, counts and time come back. */
LONG RegEnumKeyExA(HKEY hKey, DWORD dwIndex, LPSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime);
LONG RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcName, LPDWORD lpReserved, LPWSTR lpClass,
                   LPDWORD lpcClass, PFILETIME lpftLastWriteTime);

/* Gives the value with this index; 259 behind the last one.
 *   lpcValueName   as lpcName above; lpValueName must be given and gets the name as the daemon sends it
 *   lpcbData       in: bytes of lpData; out: bytes of the value, which is cut when it is longer
 * W: doubles the counts on entry; the data come back unless they are REG_SZ. */
LONG RegEnumValueA(HKEY hKey, DWORD dwIndex, LPSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
LONG RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcValueName, LPDWORD lpReserved,
                   LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);

/* Does not return before the daemon has stored what was written. */
LONG RegFlushKey(HKEY hKey);

/* Gives a key's security descriptor, if it fits; its size in bytes in any case. */
LONG RegGetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor,
                       LPDWORD lpcbSecurityDescriptor);

/* Loads a hive from a file of the daemon's machine. W: 2. */
LONG RegLoadKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpFile);
LONG RegLoadKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpFile);

/* Not supported: 1016. */
LONG RegNotifyChangeKeyValue(HKEY hKey, BOOL bWatchSubtree, DWORD dwNotifyFilter, HANDLE hEvent, BOOL fAsynchronous);

/* Opens a sub key. *phkResult is stored whatever code the daemon answers; the caller closes it after success. Options
 * are sent, the access is not. A null sub key of RegOpenKeyA is the given key, without a call; a null or empty one of
 * RegOpenKeyExA is the key itself. W: the key itself, likewise. */
LONG RegOpenKeyA(HKEY hKey, LPCSTR lpSubKey, PHKEY phkResult);
LONG RegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult);
LONG RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);
LONG RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired, PHKEY phkResult);

/* Describes a key. Any pointer may be null; lpcbSecurityDescriptor is never written.
 *   lpcClass   in: bytes of lpClass; out: bytes of the class. 234 when it is longer: as much as fits is copied then,
 *              and never a terminator
 * W: no class; its length is 0 after success. */
LONG RegQueryInfoKeyA(HKEY hKey, LPSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
LONG RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved, LPDWORD lpcSubKeys,
                      LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen, LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen,
                      LPDWORD lpcMaxValueLen, LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);

/* Gives the unnamed value of a sub key (null or empty: of the key itself), a string.
 *   lpcbValue   in: bytes of lpValue; out: bytes of the value, terminator included, cut when it is longer
 * W: the size for the key itself, no data. */
LONG RegQueryValueA(HKEY hKey, LPCSTR lpSubKey, LPSTR lpValue, LONG *lpcbValue);
LONG RegQueryValueW(HKEY hKey, LPCWSTR lpSubKey, LPWSTR lpValue, LONG *lpcbValue);

/* Gives several values in one buffer.
 *   ldwTotsize   in: bytes of lpValueBuf, one more than the values need; out: bytes of all values
 * 234 when the last value did not fit; its entry is left alone, as are those of earlier ones that did not. W: 2. */
LONG RegQueryMultipleValuesA(HKEY hKey, PVALENTA val_list, DWORD num_vals, LPSTR lpValueBuf, LPDWORD ldwTotsize);
LONG RegQueryMultipleValuesW(HKEY hKey, PVALENTW val_list, DWORD num_vals, LPWSTR lpValueBuf, LPDWORD ldwTotsize);

/* Gives a value; null or empty: the unnamed one.
 *   lpcbData   in: bytes of lpData; out: bytes of the value. A longer value is cut, whatever the code says
 * W: the unnamed value; strings are not copied. */
LONG RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData);
LONG RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData,
                      LPDWORD lpcbData);

/* Replaces a hive's file. 2 when a file name is null. W: 2. */
LONG RegReplaceKeyA(HKEY hKey, LPCSTR lpSubKey, LPCSTR lpNewFile, LPCSTR lpOldFile);
LONG RegReplaceKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpNewFile, LPCWSTR lpOldFile);

/* Restores a key from a file of the daemon's machine. W: 2. */
LONG RegRestoreKeyA(HKEY hKey, LPCSTR lpFile, DWORD dwFlags);
LONG RegRestoreKeyW(HKEY hKey, LPCWSTR lpFile, DWORD dwFlags);

/* Saves a key to a file of the daemon's machine. 2 when the file name is null. W: 2. */
LONG RegSaveKeyA(HKEY hKey, LPCSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes);
LONG RegSaveKeyW(HKEY hKey, LPCWSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes);

/* Sends an empty descriptor, whatever was given. */
LONG RegSetKeySecurity(HKEY hKey, SECURITY_INFORMATION SecurityInformation, PSECURITY_DESCRIPTOR pSecurityDescriptor);

/* Sets the unnamed value of a sub key to a string; other types than REG_SZ: 87.
 *   cbData   bytes of the string, of which no more is taken; 0: up to its terminator
 * W: 87. */
LONG RegSetValueA(HKEY hKey, LPCSTR lpSubKey, DWORD dwType, LPCSTR lpData, DWORD cbData);
LONG RegSetValueW(HKEY hKey, LPCWSTR lpSubKey, DWORD dwType, LPCWSTR lpData, DWORD cbData);

/* Sets a value; null or empty: the unnamed one. lpData must be given even when cbData, its bytes, is 0.
 * W: the unnamed value; strings: 87. */
LONG RegSetValueExA(HKEY hKey, LPCSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData);
LONG RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType, const BYTE *lpData, DWORD cbData);

/* Unloads a hive. W: 2. */
LONG RegUnLoadKeyA(HKEY hKey, LPCSTR lpSubKey);
LONG RegUnLoadKeyW(HKEY hKey, LPCWSTR lpSubKey);

/* Reads the registry daemon's version. Each pointer may be null. 1016 when there is no connection yet. */
LONG RegQueryVersionInfo(LPDWORD major, LPDWORD minor, LPDWORD patch);

/* Tells the registry daemon about this process: mode 0 after connecting, 1 before leaving, else the caller's own.
 * Returns the daemon's status; 1016 when this process has not connected to it yet, or without a reply; for mode 2
 * -1 without a reply, and as long as a connection that broke has not been made anew; 1 for mode 0 once the connections
 * have been torn down. */
LONG RegPingDaemon(int mode);

/* Opens (creating what is missing) the runtime's own base key, HKEY_LOCAL_MACHINE\Software\Corvane\Tarvo.
 * *result: a new handle that the caller closes with RegCloseKey. */
LONG tvGetBaseRegistryKey(PHKEY result);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
