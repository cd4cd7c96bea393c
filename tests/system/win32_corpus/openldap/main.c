/* SPDX-License-Identifier: MIT */
/* Stands in for slapd, whose ServiceMain is its main. */
#include "portable.h"
#include "slap.h"

static volatile int stopping;

static void shutDown(int signal) {
    (void)signal;
    stopping = 1;
}

void WINAPI ServiceMain(DWORD argc, LPTSTR *argv) {
    (void)argc;
    (void)argv;
    if (!is_NT_Service) {
        printf("slapd in the foreground\n");
        return;
    }
    lutil_CommenceStartupProcessing(SERVICE_NAME, shutDown);
    lutil_LogStartedEvent(SERVICE_NAME, 0, "slapd.conf", NULL);
    SetEvent(started_event);
    while (!stopping) {
        Sleep(10);
    }
    lutil_LogStoppedEvent(SERVICE_NAME);
    lutil_ReportShutdownComplete();
}
