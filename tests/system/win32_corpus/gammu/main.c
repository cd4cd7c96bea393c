/* SPDX-License-Identifier: MIT */
/* Stands in for gammu-smsd: its options for the service, and a loop that runs until it is told to shut down. */
#include <windows.h>

#include <gammu-smsd.h>
#include <stdio.h>
#include <string.h>

#include "winservice.h"

static GSM_SMSDConfig theConfig;
GSM_SMSDConfig *config = &theConfig;

GSM_Error SMSD_MainLoop(GSM_SMSDConfig *running, gboolean exitOnFailure, int maxFailures) {
    (void)exitOnFailure;
    (void)maxFailures;
    while (!running->shutdown) {
        Sleep(10);
    }
    return ERR_NONE;
}

GSM_Error SMSD_Shutdown(GSM_SMSDConfig *running) {
    running->shutdown = 1;
    return ERR_NONE;
}

void SMSD_LogErrno(GSM_SMSDConfig *running, const char *message) {
    (void)running;
    fprintf(stderr, "%s: %u\n", message, (unsigned)GetLastError());
}

int main(int argc, char **argv) {
    SMSD_Parameters parameters = {"smsd.conf", 5};
    gboolean done = FALSE;
    if (argc < 2) return 2;
    if (strcmp(argv[1], "-i") == 0) done = install_smsd_service(&parameters);
    if (strcmp(argv[1], "-u") == 0) done = uninstall_smsd_service();
    if (strcmp(argv[1], "-s") == 0) done = start_smsd_service();
    if (strcmp(argv[1], "-k") == 0) done = stop_smsd_service();
    if (strcmp(argv[1], "-S") == 0) done = argc == 8 && start_smsd_service_dispatcher();
    if (done) return 0;
    service_print_error(argv[1]);
    return 1;
}
