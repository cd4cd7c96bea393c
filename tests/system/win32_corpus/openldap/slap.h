/* SPDX-License-Identifier: MIT */
/* Stands in for slapd's headers: what they say of its service code. */
extern int is_NT_Service;
extern HANDLE started_event;
int lutil_srv_install(char *name, char *displayName, char *file, int autoStart);
int lutil_srv_remove(char *name, char *file);
void lutil_CommenceStartupProcessing(char *name, void (*stopper)(int));
void lutil_ReportShutdownComplete(void);
void lutil_LogStartedEvent(char *name, int debug, char *configuration, char *urls);
void lutil_LogStoppedEvent(char *name);
