/* SPDX-License-Identifier: MIT */
/* Stands in for tinc: what the service code takes of it. */
#include <windows.h>

#include <errno.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define HAVE_MINGW 1
#define HAVE_PUTENV 1
#define HAVE_UNSETENV 1
#define VERSION "stand-in"

enum { LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO };
enum { LOGMODE_STDERR, LOGMODE_FILE, LOGMODE_SYSLOG };

extern volatile bool running;
extern int debug_level;

void logger(int priority, const char *format, ...);
void openlogger(const char *ident, int mode);
const char *winerror(int code);
