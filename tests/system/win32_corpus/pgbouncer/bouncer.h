/* SPDX-License-Identifier: MIT */
/* Stands in for PgBouncer's own declarations, and for the sockets of Win32 that they bring along. */
#include <windows.h>

#include <limits.h>
#include <stdio.h>
#include <string.h>

typedef struct WSADATA {
    int version;
} WSADATA;
#define MAKEWORD(low, high) ((low) | (high) << 8)
#define WSAStartup(wanted, data) ((data)->version = (wanted), 0)

extern volatile int cf_shutdown;
extern int cf_quiet;
extern char *cf_config_file, *cf_jobname;
void init_objects(void);
void load_config(void);
void die(const char *format, ...);
