// SPDX-License-Identifier: MIT
// service_status: what tvhost reports to the daemon.
//
// Reports come from the thread that runs the service and from the one that takes controls. Once a stop was asked for no
// other state than its own is reported.
#pragma once

#include "tv/winsvc.h"
#include "tvhost/program.h"

// Registers for a service and says START_PENDING.
void BeginReports(const char *serviceName, DWORD waitMs);

// Reports a state; a pending one counts its check point on where it was the state before, too. Left out where a stop
// was asked for and this is not about it.
void ReportState(DWORD state, DWORD waitMs = 0);

// Reports the end.
void ReportStopped(ExitCodes codes);

// Reports the present state once more, for a daemon that has not heard of it.
void ReportAgain();

// How long a stop may take.
void SetStopWait(DWORD waitMs);
