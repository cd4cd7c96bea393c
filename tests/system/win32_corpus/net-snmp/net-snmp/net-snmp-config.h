/* SPDX-License-Identifier: MIT */
/* Stands in for Net-SNMP's configuration of a build, and for what its service code asks of windows and of threads. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

#define mingw32 /* no exceptions of the compiler */
#define HAVE__BEGINTHREADEX 1
#define MB_ICONASTERISK EVENTLOG_INFORMATION_TYPE
#define MB_ICONEXCLAMATION EVENTLOG_WARNING_TYPE
#define MB_ICONSTOP EVENTLOG_ERROR_TYPE
#define MessageBox(window, text, title, kind) fprintf(stderr, "%s: %s\n", (title), (text))

/* A thread cannot be halted from outside. */
#define SuspendThread(thread) (-1)
#define ResumeThread(thread) (-1)
#define TerminateThread(thread, code) FALSE
