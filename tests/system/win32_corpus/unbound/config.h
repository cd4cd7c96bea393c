/* SPDX-License-Identifier: MIT */
/* Stands in for Unbound's configuration of a build, and for the events of Winsock, which are events like others. */
#include <windows.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#define CONFIGFILE "unbound.conf"
#define ATTR_UNUSED(name) name __attribute__((unused))

typedef HANDLE WSAEVENT;
#define WSA_INVALID_EVENT NULL
#define WSACreateEvent() CreateEvent(NULL, TRUE, FALSE, NULL)
#define WSASetEvent SetEvent
#define WSAResetEvent ResetEvent
#define WSACloseEvent CloseHandle
#define WSAGetLastError() ((int)GetLastError())
