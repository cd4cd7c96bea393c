// SPDX-License-Identifier: MIT
// registry: what the files of the registry client share.
//
//   entry_points.cpp   the Win32 functions: each takes the mutex and calls its slot of the table below
//   keys.cpp, values.cpp, hives.cpp   the operations in the slots: one call to the daemon each
//   connection.cpp     the connections to registry daemons, who we are to them, ping and version
//   parameters.cpp     daemon options and address
//   regd_clnt, regd_xdr   the daemon's protocol
//
// Thread: all of it runs, and all of these variables are touched, under tvRegistryMutex only (tvpthread.h).
#pragma once

#include "registry/regd_xdr.h"
#include "tv/tvregistry.h"
#include "tv/winreg.h"

// ---- The dispatch table -----------------------------------------------------------------------------------------

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

// One row of the table. The order is the contract between entry points and operations: alphabetical by Win32 name, A
// before W, except for the query-multiple-values pair and this system's own two at the end.
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

// ---- Connections ------------------------------------------------------------------------------------------------

// A connection in a slot of clntArray. The slot number stands in bits 20 to 27 of every key of that connection.
//
//   state       event                                  next state
//   no entry    an operation, or RegConnectRegistry    connected (or no entry, when it fails)
//   connected   send or receive fails                  broken: the client is null, host name and slot are kept
//   broken      next operation on the slot             connected (or broken, when it fails)
//   any         tear-down                              no entry
struct RegistryConnectionEntry {
    char *hostName; // heap copy; null for the local daemon in slot 0
    CLIENT *client; // null when broken
};

extern RegistryConnectionEntry **clntArray; // by client number, null when free; null before the first connection
extern int connectionSlots;                 // slots that clntArray has room for
extern int numConnections;                  // connections made since the table was last emptied
extern int nextClientNum;                   // client number of the next remote connection
extern int connectionTableDestroyed;        // 1 after a tear-down: nothing is connected any more

constexpr std::uint32_t tarvoVersion = 6; // our own protocol level
extern regd_USER_DATA g_userData;         // who we are; filled on the first connection attempt
extern int userDataSet;                   // 1 once g_userData is filled

// What has happened at least once.
extern int destructorMsg;   // a connection was asked for after a tear-down
extern int wrongVersionMsg; // a handshake failed, or a daemon was too old
extern int connectFailMsg;  // a daemon could not be reached

// Kept with their values, otherwise unused; the first two are reset with the table.
extern int pingXtIntervalId;
extern int pingThreadHandle;
extern int regdRegPingDaemonAllowed;
extern int bFirstSpawn;

constexpr HKEY clientNumberBits = 0x0FF00000;

// A daemon's key as the caller gets it: with the number of its connection.
constexpr HKEY WithClientNumber(HKEY key, int clientNumber) {
    return (static_cast<HKEY>(clientNumber) << 20 & clientNumberBits) | key;
}

// Gives the connection that a key belongs to, making it when there is none: address, handshake, ping with mode 0.
//   host        the machine of a new connection, null for the local daemon; not looked at when the slot is taken
//   key         on return without its client number, as the daemon knows it
//   clientNum   on return the number of the connection; left alone on failure
// Returns the connection's client handle, borrowed; null when there is none. Blocks while connecting.
[[nodiscard]] CLIENT *tvConnectRegistryDaemon(const char *host, HKEY *key, int *clientNum);

// To be called when a call over a connection brought no reply. A connection that broke (as opposed to a daemon that
// is silent, or an answer that made no sense) is closed and keeps its slot for the next operation to connect anew.
void DropConnectionIfBroken(int clientNum);

// ---- Daemon options and address ---------------------------------------------------------------------------------

extern char *regdLocation;
extern int regdFlushInterval;
extern int regdKeepBackup;
extern int regdLogLines;
extern int regdPingCheckInterval;
extern int regdVerbose;
extern int regdSystemDaemon; // the only option that this client reads
extern char *regdExecLocation;
extern int regdSems;
extern int regdSemaphoreProc;
extern int regdSemaphoreAccess;

extern int bAllowSystemDaemonConnect;
extern int bAllowLocalDaemonConnect;

extern std::uint32_t tvreg_prognum; // 0 until first computed

constexpr unsigned registryHostBytes = 256; // host name buffers, terminator included

// Copies a host name into a buffer of registryHostBytes; a longer one is cut.
void CopyHostName(char *host, const char *name);

// ---- Process id -------------------------------------------------------------------------------------------------

extern int pid_init;
extern pid_t cached_pid;
