/* SPDX-License-Identifier: MIT */
/*
 * winsvc: the Win32 service API of this runtime, for C and C++: the client side (OpenSCManagerA ...) and the side of
 * a service program (StartServiceCtrlDispatcherA ...).
 */
#ifndef TV_WINSVC_H
#define TV_WINSVC_H

#include "tv/winerror.h"
#include "tv/wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Service types. */
#define SERVICE_KERNEL_DRIVER 0x01
#define SERVICE_FILE_SYSTEM_DRIVER 0x02
#define SERVICE_ADAPTER 0x04
#define SERVICE_RECOGNIZER_DRIVER 0x08
#define SERVICE_DRIVER 0x0B
#define SERVICE_WIN32_OWN_PROCESS 0x10
#define SERVICE_WIN32_SHARE_PROCESS 0x20
#define SERVICE_WIN32 0x30
#define SERVICE_INTERACTIVE_PROCESS 0x100

/* Start types. */
#define SERVICE_BOOT_START 0
#define SERVICE_SYSTEM_START 1
#define SERVICE_AUTO_START 2
#define SERVICE_DEMAND_START 3
#define SERVICE_DISABLED 4

/* Error control. */
#define SERVICE_ERROR_IGNORE 0
#define SERVICE_ERROR_NORMAL 1
#define SERVICE_ERROR_SEVERE 2
#define SERVICE_ERROR_CRITICAL 3

#define SERVICE_NO_CHANGE 0xFFFFFFFFu

/* Current states. */
#define SERVICE_STOPPED 1
#define SERVICE_START_PENDING 2
#define SERVICE_STOP_PENDING 3
#define SERVICE_RUNNING 4
#define SERVICE_CONTINUE_PENDING 5
#define SERVICE_PAUSE_PENDING 6
#define SERVICE_PAUSED 7

/* State filters of enumerations. */
#define SERVICE_ACTIVE 1
#define SERVICE_INACTIVE 2
#define SERVICE_STATE_ALL 3

/* Controls; 128 to 255 are the service's own. */
#define SERVICE_CONTROL_STOP 1
#define SERVICE_CONTROL_PAUSE 2
#define SERVICE_CONTROL_CONTINUE 3
#define SERVICE_CONTROL_INTERROGATE 4
#define SERVICE_CONTROL_SHUTDOWN 5

/* Accepted controls. */
#define SERVICE_ACCEPT_STOP 1
#define SERVICE_ACCEPT_PAUSE_CONTINUE 2
#define SERVICE_ACCEPT_SHUTDOWN 4

/* The state of a service as it reports it. */
typedef struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode; /* meaningful when dwWin32ExitCode is 1066 */
    DWORD dwCheckPoint;
    DWORD dwWaitHint; /* milliseconds */
} SERVICE_STATUS, *LPSERVICE_STATUS;

#ifdef __cplusplus
}
#endif

#endif
