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

#include <cstddef>

// The table's slots, which is how entry points and operations meet: alphabetical by Win32 name, A before W, except for
// the query-multiple-values pair and this system's own two at the end. Number, operation, Win32 function. An operation
// has the arguments and result codes of its function, but does not take the mutex.
// clang-format off
#define REGISTRY_OPERATIONS(X) \
    X(0, reg_close_key, RegCloseKey) \
    X(1, reg_connect_registry_a, RegConnectRegistryA) \
    X(2, reg_connect_registry_w, RegConnectRegistryW) \
    X(3, reg_create_key_a, RegCreateKeyA) \
    X(4, reg_create_key_w, RegCreateKeyW) \
    X(5, reg_create_key_ex_a, RegCreateKeyExA) \
    X(6, reg_create_key_ex_w, RegCreateKeyExW) \
    X(7, reg_delete_key_a, RegDeleteKeyA) \
    X(8, reg_delete_key_w, RegDeleteKeyW) \
    X(9, reg_delete_value_a, RegDeleteValueA) \
    X(10, reg_delete_value_w, RegDeleteValueW) \
    X(11, reg_enum_key_a, RegEnumKeyA) \
    X(12, reg_enum_key_w, RegEnumKeyW) \
    X(13, reg_enum_key_ex_a, RegEnumKeyExA) \
    X(14, reg_enum_key_ex_w, RegEnumKeyExW) \
    X(15, reg_enum_value_a, RegEnumValueA) \
    X(16, reg_enum_value_w, RegEnumValueW) \
    X(17, reg_flush_key, RegFlushKey) \
    X(18, reg_get_key_security, RegGetKeySecurity) \
    X(19, reg_load_key_a, RegLoadKeyA) \
    X(20, reg_load_key_w, RegLoadKeyW) \
    X(21, reg_notify_change_key_value, RegNotifyChangeKeyValue) \
    X(22, reg_open_key_a, RegOpenKeyA) \
    X(23, reg_open_key_w, RegOpenKeyW) \
    X(24, reg_open_key_ex_a, RegOpenKeyExA) \
    X(25, reg_open_key_ex_w, RegOpenKeyExW) \
    X(26, reg_query_info_key_a, RegQueryInfoKeyA) \
    X(27, reg_query_info_key_w, RegQueryInfoKeyW) \
    X(28, reg_query_value_a, RegQueryValueA) \
    X(29, reg_query_value_w, RegQueryValueW) \
    X(30, reg_query_multiple_values_a, RegQueryMultipleValuesA) \
    X(31, reg_query_multiple_values_w, RegQueryMultipleValuesW) \
    X(32, reg_query_value_ex_a, RegQueryValueExA) \
    X(33, reg_query_value_ex_w, RegQueryValueExW) \
    X(34, reg_replace_key_a, RegReplaceKeyA) \
    X(35, reg_replace_key_w, RegReplaceKeyW) \
    X(36, reg_restore_key_a, RegRestoreKeyA) \
    X(37, reg_restore_key_w, RegRestoreKeyW) \
    X(38, reg_save_key_a, RegSaveKeyA) \
    X(39, reg_save_key_w, RegSaveKeyW) \
    X(40, reg_set_key_security, RegSetKeySecurity) \
    X(41, reg_set_value_a, RegSetValueA) \
    X(42, reg_set_value_w, RegSetValueW) \
    X(43, reg_set_value_ex_a, RegSetValueExA) \
    X(44, reg_set_value_ex_w, RegSetValueExW) \
    X(45, reg_unload_key_a, RegUnLoadKeyA) \
    X(46, reg_unload_key_w, RegUnLoadKeyW) \
    X(47, reg_query_version_info, RegQueryVersionInfo) \
    X(48, reg_ping_daemon, RegPingDaemon)
// clang-format on

#define REGISTRY_OPERATION(slot, operation, function) decltype(function) operation;
REGISTRY_OPERATIONS(REGISTRY_OPERATION)
#undef REGISTRY_OPERATION

// One row of the table.
#define REGISTRY_SLOT(slot, operation, function) decltype(&function) operation;
struct RegistryOperations {
    REGISTRY_OPERATIONS(REGISTRY_SLOT)
};
#undef REGISTRY_SLOT

#define REGISTRY_PLACE(slot, operation, function)                                                                      \
    static_assert(offsetof(RegistryOperations, operation) == slot * sizeof(void (*)()));
REGISTRY_OPERATIONS(REGISTRY_PLACE)
#undef REGISTRY_PLACE
constexpr int registrySlots = 49;
static_assert(sizeof(RegistryOperations) == registrySlots * sizeof(void (*)()));

// Row 0 serves every call; row 1 is empty. Tests put their own functions into row 0.
extern RegistryOperations _tvRegistryAPISet[2];
extern int tvOSID; // the row in use; nothing changes it

// The keys that tvGetBaseRegistryKey keeps open, valid when bCached is 1.
extern HKEY hksw;
extern HKEY hkco;
extern int bCached;
