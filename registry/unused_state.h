// SPDX-License-Identifier: MIT
// unused_state: variables that this client sets, or lets its caller set, and that nothing in it reads.
//
// They hold what happened, and what was asked for, for whoever debugs a program or links with one of them.
#pragma once

// What has happened at least once: 0 or 1.
extern int destructorMsg;   // a connection was asked for after a tear-down
extern int wrongVersionMsg; // a handshake failed, or a daemon was too old
extern int connectFailMsg;  // a daemon could not be reached

// Options for a daemon that the client would start; it starts none. Texts are malloc memory, null when never set.
extern char *regdLocation;
extern char *regdExecLocation;
extern int regdFlushInterval;
extern int regdKeepBackup;
extern int regdLogLines;
extern int regdPingCheckInterval;
extern int regdVerbose;
extern int regdSems;
extern int regdSemaphoreProc;
extern int regdSemaphoreAccess;

// Told by tvIsLocalRegistryConnectDisabled, but no connection asks.
extern int bAllowLocalDaemonConnect;

// Of a pinging thread that this client does not have; the first two are reset with the connection table.
extern int pingXtIntervalId;
extern int pingThreadHandle;
extern int regdRegPingDaemonAllowed;
extern int bFirstSpawn;
