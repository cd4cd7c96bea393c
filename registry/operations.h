// SPDX-License-Identifier: MIT
// operations: what stands behind the Win32 functions, and the table through which they are called.
//
// From above to below; each calls those beneath it only:
//   tear_down.cpp      closing or forgetting all connections
//   entry_points.cpp   the Win32 functions: each takes the mutex and calls its slot of the table
//   keys.cpp, values.cpp, hives.cpp   the operations in the slots: one call to the daemon each (operation.h)
//   connection.cpp     the connections to registry daemons; the slots for connecting, ping and version
//   parameters.cpp     daemon options and address
//   regd_clnt, regd_xdr   the daemon's protocol
//
// Thread: all operations run, and the variables are touched, under tvRegistryMutex only (tvpthread.h).
#pragma once

#include "tv/tvregistry.h"
#include "tv/winreg.h"

// The operations behind the Win32 functions: same arguments, same result codes, but without the mutex.
decltype(RegCloseKey) reg_close_key;
decltype(RegConnectRegistryA) reg_connect_registry_a;
decltype(RegConnectRegistryW) reg_connect_registry_w;
decltype(RegCreateKeyA) reg_create_key_a;
decltype(RegCreateKeyW) reg_create_key_w;
decltype(RegCreateKeyExA) reg_create_key_ex_a;
decltype(RegCreateKeyExW) reg_create_key_ex_w;
decltype(RegDeleteKeyA) reg_delete_key_a;
decltype(RegDeleteKeyW) reg_delete_key_w;
decltype(RegDeleteValueA) reg_delete_value_a;
decltype(RegDeleteValueW) reg_delete_value_w;
decltype(RegEnumKeyA) reg_enum_key_a;
decltype(RegEnumKeyW) reg_enum_key_w;
decltype(RegEnumKeyExA) reg_enum_key_ex_a;
decltype(RegEnumKeyExW) reg_enum_key_ex_w;
decltype(RegEnumValueA) reg_enum_value_a;
decltype(RegEnumValueW) reg_enum_value_w;
decltype(RegFlushKey) reg_flush_key;
decltype(RegGetKeySecurity) reg_get_key_security;
decltype(RegLoadKeyA) reg_load_key_a;
decltype(RegLoadKeyW) reg_load_key_w;
decltype(RegNotifyChangeKeyValue) reg_notify_change_key_value;
decltype(RegOpenKeyA) reg_open_key_a;
decltype(RegOpenKeyW) reg_open_key_w;
decltype(RegOpenKeyExA) reg_open_key_ex_a;
decltype(RegOpenKeyExW) reg_open_key_ex_w;
decltype(RegQueryInfoKeyA) reg_query_info_key_a;
decltype(RegQueryInfoKeyW) reg_query_info_key_w;
decltype(RegQueryValueA) reg_query_value_a;
decltype(RegQueryValueW) reg_query_value_w;
decltype(RegQueryMultipleValuesA) reg_query_multiple_values_a;
decltype(RegQueryMultipleValuesW) reg_query_multiple_values_w;
decltype(RegQueryValueExA) reg_query_value_ex_a;
decltype(RegQueryValueExW) reg_query_value_ex_w;
decltype(RegReplaceKeyA) reg_replace_key_a;
decltype(RegReplaceKeyW) reg_replace_key_w;
decltype(RegRestoreKeyA) reg_restore_key_a;
decltype(RegRestoreKeyW) reg_restore_key_w;
decltype(RegSaveKeyA) reg_save_key_a;
decltype(RegSaveKeyW) reg_save_key_w;
decltype(RegSetKeySecurity) reg_set_key_security;
decltype(RegSetValueA) reg_set_value_a;
decltype(RegSetValueW) reg_set_value_w;
decltype(RegSetValueExA) reg_set_value_ex_a;
decltype(RegSetValueExW) reg_set_value_ex_w;
decltype(RegUnLoadKeyA) reg_unload_key_a;
decltype(RegUnLoadKeyW) reg_unload_key_w;
decltype(RegQueryVersionInfo) reg_query_version_info;
decltype(RegPingDaemon) reg_ping_daemon;

// One row of the table. Entry points and operations meet by this order: alphabetical by Win32 name, A before W, except
// for the query-multiple-values pair and this system's own two at the end.
struct RegistryOperations {
    decltype(&RegCloseKey) reg_close_key;                           // 0
    decltype(&RegConnectRegistryA) reg_connect_registry_a;          // 1
    decltype(&RegConnectRegistryW) reg_connect_registry_w;          // 2
    decltype(&RegCreateKeyA) reg_create_key_a;                      // 3
    decltype(&RegCreateKeyW) reg_create_key_w;                      // 4
    decltype(&RegCreateKeyExA) reg_create_key_ex_a;                 // 5
    decltype(&RegCreateKeyExW) reg_create_key_ex_w;                 // 6
    decltype(&RegDeleteKeyA) reg_delete_key_a;                      // 7
    decltype(&RegDeleteKeyW) reg_delete_key_w;                      // 8
    decltype(&RegDeleteValueA) reg_delete_value_a;                  // 9
    decltype(&RegDeleteValueW) reg_delete_value_w;                  // 10
    decltype(&RegEnumKeyA) reg_enum_key_a;                          // 11
    decltype(&RegEnumKeyW) reg_enum_key_w;                          // 12
    decltype(&RegEnumKeyExA) reg_enum_key_ex_a;                     // 13
    decltype(&RegEnumKeyExW) reg_enum_key_ex_w;                     // 14
    decltype(&RegEnumValueA) reg_enum_value_a;                      // 15
    decltype(&RegEnumValueW) reg_enum_value_w;                      // 16
    decltype(&RegFlushKey) reg_flush_key;                           // 17
    decltype(&RegGetKeySecurity) reg_get_key_security;              // 18
    decltype(&RegLoadKeyA) reg_load_key_a;                          // 19
    decltype(&RegLoadKeyW) reg_load_key_w;                          // 20
    decltype(&RegNotifyChangeKeyValue) reg_notify_change_key_value; // 21
    decltype(&RegOpenKeyA) reg_open_key_a;                          // 22
    decltype(&RegOpenKeyW) reg_open_key_w;                          // 23
    decltype(&RegOpenKeyExA) reg_open_key_ex_a;                     // 24
    decltype(&RegOpenKeyExW) reg_open_key_ex_w;                     // 25
    decltype(&RegQueryInfoKeyA) reg_query_info_key_a;               // 26
    decltype(&RegQueryInfoKeyW) reg_query_info_key_w;               // 27
    decltype(&RegQueryValueA) reg_query_value_a;                    // 28
    decltype(&RegQueryValueW) reg_query_value_w;                    // 29
    decltype(&RegQueryMultipleValuesA) reg_query_multiple_values_a; // 30
    decltype(&RegQueryMultipleValuesW) reg_query_multiple_values_w; // 31
    decltype(&RegQueryValueExA) reg_query_value_ex_a;               // 32
    decltype(&RegQueryValueExW) reg_query_value_ex_w;               // 33
    decltype(&RegReplaceKeyA) reg_replace_key_a;                    // 34
    decltype(&RegReplaceKeyW) reg_replace_key_w;                    // 35
    decltype(&RegRestoreKeyA) reg_restore_key_a;                    // 36
    decltype(&RegRestoreKeyW) reg_restore_key_w;                    // 37
    decltype(&RegSaveKeyA) reg_save_key_a;                          // 38
    decltype(&RegSaveKeyW) reg_save_key_w;                          // 39
    decltype(&RegSetKeySecurity) reg_set_key_security;              // 40
    decltype(&RegSetValueA) reg_set_value_a;                        // 41
    decltype(&RegSetValueW) reg_set_value_w;                        // 42
    decltype(&RegSetValueExA) reg_set_value_ex_a;                   // 43
    decltype(&RegSetValueExW) reg_set_value_ex_w;                   // 44
    decltype(&RegUnLoadKeyA) reg_unload_key_a;                      // 45
    decltype(&RegUnLoadKeyW) reg_unload_key_w;                      // 46
    decltype(&RegQueryVersionInfo) reg_query_version_info;          // 47
    decltype(&RegPingDaemon) reg_ping_daemon;                       // 48
};

constexpr int registrySlots = 49;
static_assert(sizeof(RegistryOperations) == registrySlots * sizeof(void (*)()));

// Row 0 serves every call; row 1 is empty. Tests put their own functions into row 0.
extern RegistryOperations _tvRegistryAPISet[2];
extern int tvOSID; // the row in use; nothing changes it

// The keys that tvGetBaseRegistryKey keeps open, valid when bCached is 1.
extern HKEY hksw;
extern HKEY hkco;
extern int bCached;
