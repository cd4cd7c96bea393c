// SPDX-License-Identifier: MIT
// unused_state: variables that this client sets, or lets its caller set, and that nothing in it reads.
#include "registry/unused_state.h"

int destructorMsg = 0;
int wrongVersionMsg = 0;
int connectFailMsg = 0;

char *regdLocation = nullptr;
char *regdExecLocation = nullptr;
int regdFlushInterval = 0;
int regdKeepBackup = 1;
int regdLogLines = 0;
int regdPingCheckInterval = 0;
int regdVerbose = 0;
int regdSems = 0;
int regdSemaphoreProc = 0;
int regdSemaphoreAccess = 0;

int bAllowLocalDaemonConnect = 1;

int pingXtIntervalId = 0;
int pingThreadHandle = 0;
int regdRegPingDaemonAllowed = 0;
int bFirstSpawn = 1;
