/* SPDX-License-Identifier: MIT */
/* Stands in for Gammu: what the service code takes of it. */
typedef int gboolean;
typedef int GSM_Error;
#define ERR_NONE 1
typedef struct GSM_SMSDConfig {
    volatile int shutdown;
} GSM_SMSDConfig;
typedef struct SMSD_Parameters {
    const char *config_file;
    int max_failures;
} SMSD_Parameters;
GSM_Error SMSD_MainLoop(GSM_SMSDConfig *config, gboolean exitOnFailure, int maxFailures);
GSM_Error SMSD_Shutdown(GSM_SMSDConfig *config);
void SMSD_LogErrno(GSM_SMSDConfig *config, const char *message);
