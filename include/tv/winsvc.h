/* SPDX-License-Identifier: MIT */
/*
 * winsvc: the Win32 service API of this runtime, for C and C++. Library: tvsvc.
 *
 * Two sides in one header. Clients open the service daemon (OpenSCManagerA) and work on its services; a service program
 * hands its services to StartServiceCtrlDispatcherA and reports their states with SetServiceStatus.
 *
 * What all functions share:
 *   - A BOOL function returns FALSE, a handle function NULL, when it failed; GetLastError then tells the code. A
 *     success leaves GetLastError as it was.
 *   - 6 ERROR_INVALID_HANDLE for a handle that is not open or of the wrong kind, 87 ERROR_INVALID_PARAMETER for a null
 *     pointer where one is required, 1722 RPC_S_SERVER_UNAVAILABLE when the daemon cannot be reached, 1726
 *     RPC_S_CALL_FAILED when the connection broke during the call (the daemon may or may not have done what was asked),
 *     1460 ERROR_TIMEOUT when no answer came within the call's time-out (TV_CALL_TIMEOUT_SEC, see tvSetCallTimeout):
 *     the daemon serves one request at a time and a start may hold it for TV_LONGEST_START_SEC.
 *   - Buffers that receive records are counted in bytes and hold the records first, the strings that they point at
 *     behind them. Too small a buffer gives 122 ERROR_INSUFFICIENT_BUFFER, or 234 ERROR_MORE_DATA from an enumeration,
 *     and *pcbBytesNeeded tells the bytes wanted.
 *   - Names are bytes, compared exactly, letter case included. Access masks are not checked by anybody.
 *   - Every function may be called from any thread.
 */
#ifndef TV_WINSVC_H
#define TV_WINSVC_H

#include "tv/lasterror.h"
#include "tv/winerror.h"
#include "tv/wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Limits of this daemon. */
#define TV_MAX_TEXT_BYTES 1023 /* of a name, display name, image path or group, without the terminator */
#define TV_LONGEST_START_SEC 67
#define TV_CALL_TIMEOUT_SEC 97

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
/* Names for handlers of other systems: nobody sends these here. */
#define SERVICE_CONTROL_PARAMCHANGE 0x06
#define SERVICE_CONTROL_NETBINDADD 0x07
#define SERVICE_CONTROL_NETBINDREMOVE 0x08
#define SERVICE_CONTROL_NETBINDENABLE 0x09
#define SERVICE_CONTROL_NETBINDDISABLE 0x0A
#define SERVICE_CONTROL_DEVICEEVENT 0x0B
#define SERVICE_CONTROL_HARDWAREPROFILECHANGE 0x0C
#define SERVICE_CONTROL_POWEREVENT 0x0D
#define SERVICE_CONTROL_SESSIONCHANGE 0x0E
#define SERVICE_CONTROL_PRESHUTDOWN 0x0F
#define SERVICE_CONTROL_TIMECHANGE 0x10
#define SERVICE_CONTROL_TRIGGEREVENT 0x20

/* Accepted controls. The daemon looks at the first two. */
#define SERVICE_ACCEPT_STOP 1
#define SERVICE_ACCEPT_PAUSE_CONTINUE 2
#define SERVICE_ACCEPT_SHUTDOWN 4
#define SERVICE_ACCEPT_PARAMCHANGE 0x08
#define SERVICE_ACCEPT_NETBINDCHANGE 0x10
#define SERVICE_ACCEPT_HARDWAREPROFILECHANGE 0x20
#define SERVICE_ACCEPT_POWEREVENT 0x40
#define SERVICE_ACCEPT_SESSIONCHANGE 0x80
#define SERVICE_ACCEPT_PRESHUTDOWN 0x100
#define SERVICE_ACCEPT_TIMECHANGE 0x200
#define SERVICE_ACCEPT_TRIGGEREVENT 0x400

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

/* The same with the process: of the daemon's machine, and only where the service's program has left its id. */
typedef struct SERVICE_STATUS_PROCESS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwProcessId;    /* 0 when stopped or not known */
    DWORD dwServiceFlags; /* 0 */
} SERVICE_STATUS_PROCESS, *LPSERVICE_STATUS_PROCESS;

/* --- the client side -------------------------------------------------------------------------------------------- */

/* An open daemon connection or an open service. Never dereference. */
typedef struct tvServiceHandle *SC_HANDLE;
/* A database lock that this process holds. */
typedef void *SC_LOCK;

#define SERVICES_ACTIVE_DATABASEA "ServicesActive"
#define SERVICES_FAILED_DATABASEA "ServicesFailed"
#define SC_GROUP_IDENTIFIERA '+'
#if __SIZEOF_WCHAR_T__ == 2
#define SERVICES_ACTIVE_DATABASEW L"ServicesActive"
#define SERVICES_FAILED_DATABASEW L"ServicesFailed"
#define SC_GROUP_IDENTIFIERW L'+'
#else
#define SERVICES_ACTIVE_DATABASEW u"ServicesActive"
#define SERVICES_FAILED_DATABASEW u"ServicesFailed"
#define SC_GROUP_IDENTIFIERW u'+'
#endif

/* Access rights, accepted for source compatibility. */
#define SC_MANAGER_CONNECT 0x0001
#define SC_MANAGER_CREATE_SERVICE 0x0002
#define SC_MANAGER_ENUMERATE_SERVICE 0x0004
#define SC_MANAGER_LOCK 0x0008
#define SC_MANAGER_QUERY_LOCK_STATUS 0x0010
#define SC_MANAGER_MODIFY_BOOT_CONFIG 0x0020
#define SC_MANAGER_ALL_ACCESS 0xF003F
#define SERVICE_QUERY_CONFIG 0x0001
#define SERVICE_CHANGE_CONFIG 0x0002
#define SERVICE_QUERY_STATUS 0x0004
#define SERVICE_ENUMERATE_DEPENDENTS 0x0008
#define SERVICE_START 0x0010
#define SERVICE_STOP 0x0020
#define SERVICE_PAUSE_CONTINUE 0x0040
#define SERVICE_INTERROGATE 0x0080
#define SERVICE_USER_DEFINED_CONTROL 0x0100
#define SERVICE_ALL_ACCESS 0xF01FF

typedef struct ENUM_SERVICE_STATUSA {
    LPSTR lpServiceName;
    LPSTR lpDisplayName;
    SERVICE_STATUS ServiceStatus;
} ENUM_SERVICE_STATUSA, *LPENUM_SERVICE_STATUSA;

typedef struct ENUM_SERVICE_STATUSW {
    LPWSTR lpServiceName;
    LPWSTR lpDisplayName;
    SERVICE_STATUS ServiceStatus;
} ENUM_SERVICE_STATUSW, *LPENUM_SERVICE_STATUSW;

typedef struct ENUM_SERVICE_STATUS_PROCESSA {
    LPSTR lpServiceName;
    LPSTR lpDisplayName;
    SERVICE_STATUS_PROCESS ServiceStatusProcess;
} ENUM_SERVICE_STATUS_PROCESSA, *LPENUM_SERVICE_STATUS_PROCESSA;

typedef struct ENUM_SERVICE_STATUS_PROCESSW {
    LPWSTR lpServiceName;
    LPWSTR lpDisplayName;
    SERVICE_STATUS_PROCESS ServiceStatusProcess;
} ENUM_SERVICE_STATUS_PROCESSW, *LPENUM_SERVICE_STATUS_PROCESSW;

typedef struct QUERY_SERVICE_CONFIGA {
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPSTR lpBinaryPathName;
    LPSTR lpLoadOrderGroup;   /* "" when none */
    DWORD dwTagId;            /* 0 when none */
    LPSTR lpDependencies;     /* multi-string; groups begin with SC_GROUP_IDENTIFIERA */
    LPSTR lpServiceStartName; /* the Unix user; "" for the daemon's own */
    LPSTR lpDisplayName;
} QUERY_SERVICE_CONFIGA, *LPQUERY_SERVICE_CONFIGA;

typedef struct QUERY_SERVICE_CONFIGW {
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPWSTR lpBinaryPathName;
    LPWSTR lpLoadOrderGroup;
    DWORD dwTagId;
    LPWSTR lpDependencies;
    LPWSTR lpServiceStartName;
    LPWSTR lpDisplayName;
} QUERY_SERVICE_CONFIGW, *LPQUERY_SERVICE_CONFIGW;

typedef struct QUERY_SERVICE_LOCK_STATUSA {
    DWORD fIsLocked;
    LPSTR lpLockOwner;    /* "" when not locked */
    DWORD dwLockDuration; /* seconds; 0 when not locked */
} QUERY_SERVICE_LOCK_STATUSA, *LPQUERY_SERVICE_LOCK_STATUSA;

typedef struct QUERY_SERVICE_LOCK_STATUSW {
    DWORD fIsLocked;
    LPWSTR lpLockOwner;
    DWORD dwLockDuration;
} QUERY_SERVICE_LOCK_STATUSW, *LPQUERY_SERVICE_LOCK_STATUSW;

typedef enum SC_STATUS_TYPE { SC_STATUS_PROCESS_INFO = 0 } SC_STATUS_TYPE;
typedef enum SC_ENUM_TYPE { SC_ENUM_PROCESS_INFO = 0 } SC_ENUM_TYPE;

/* Connects to the service daemon.
 *   lpMachineName   host by name or address, with two backslashes before it or without; null or empty for this one
 *   lpDatabaseName  null or "ServicesActive", else 123 ERROR_INVALID_NAME
 * 1065 ERROR_DATABASE_DOES_NOT_EXIST when the daemon runs but could not load its database (tvOpenDaemon connects all
 * the same). One handle is one TCP connection; it is made anew when the daemon was restarted, and service handles are
 * then opened again by name. Close with CloseServiceHandle. */
SC_HANDLE OpenSCManagerA(LPCSTR lpMachineName, LPCSTR lpDatabaseName, DWORD dwDesiredAccess);

/* Opens a service. 1060 ERROR_SERVICE_DOES_NOT_EXIST when there is none of this name or it is marked for deletion.
 * The daemon counts open handles for ever: a handle that is never closed (a client killed with SIGKILL) keeps a deleted
 * service alive until the daemon restarts. Handles left open are closed when the process exits. */
SC_HANDLE OpenServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, DWORD dwDesiredAccess);

/* Closes either kind of handle. A manager handle may be closed before the services opened through it. */
BOOL CloseServiceHandle(SC_HANDLE hSCObject);

/* Creates a service and opens it. Called by root on the daemon's machine, it also makes the file that a service with an
 * account of its own leaves its process id in.
 *   lpDisplayName       null for the service name
 *   lpBinaryPathName    a csh script that ends in `exec PROGRAM`; the daemon hands it to /bin/csh as its one argument.
 *                       Or a program with its arguments, see below
 *   lpLoadOrderGroup    null or "" for none
 *   lpdwTagId           null for no tag; else receives the tag, and a group is required (87)
 *   lpDependencies      multi-string of service names and "+group" names; null for none
 *   lpServiceStartName  the Unix user to run as; null or "" for the daemon's own
 *   lpPassword          not used
 * A path may also be that of a program, or a command line that begins with one, "quoted" where there are blanks in it,
 * and with backslashes for slashes.
 * The library then writes such a script for the daemon, if it is this machine's: /etc/tv/services/NAME.csh. The script
 * keeps the command line, and QueryServiceConfig shows what was given. A path that is neither stays as it is.
 * 87 ERROR_INVALID_PARAMETER also for an image path or a group of more than TV_MAX_TEXT_BYTES, 123 ERROR_INVALID_NAME
 * for a name that is empty or has a slash or a backslash in it, and for a name or display name of more than
 * TV_MAX_TEXT_BYTES: the daemon could not load its database with it; 1057 ERROR_INVALID_SERVICE_ACCOUNT, 1059
 * ERROR_CIRCULAR_DEPENDENCY, 1065 ERROR_DATABASE_DOES_NOT_EXIST (registry), 1073 ERROR_SERVICE_EXISTS. Where the
 * script cannot be written there is no service: 5 ERROR_ACCESS_DENIED (only root may), 8 ERROR_NOT_ENOUGH_MEMORY (no
 * room), 183 ERROR_ALREADY_EXISTS (a file of somebody else's, or what another service is started with). Differs from
 * Win32: type, start type and error control are stored unchecked, and a held database lock does not matter. */
SC_HANDLE CreateServiceA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPCSTR lpDisplayName, DWORD dwDesiredAccess,
                         DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl, LPCSTR lpBinaryPathName,
                         LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCSTR lpDependencies, LPCSTR lpServiceStartName,
                         LPCSTR lpPassword);

/* Marks a service for deletion: it goes when it is stopped and its last handle is closed. The script that was written
 * for it goes when the handle that was given here is closed and the service is gone by then; one that is left over is
 * replaced by the next service of the name. 1072
 * ERROR_SERVICE_MARKED_FOR_DELETE when it is marked already. */
BOOL DeleteService(SC_HANDLE hService);

/* Starts a service; argument 0 of its ServiceMain is its name, the given arguments follow. Returns when its process has
 * taken the start request: the state is SERVICE_START_PENDING then.
 * 3 ERROR_PATH_NOT_FOUND (the program or the user switch failed), 6 also for a circular dependency, 1053
 * ERROR_SERVICE_REQUEST_TIMEOUT (the process did not register or answer), 1055 ERROR_SERVICE_DATABASE_LOCKED (whoever
 * holds the lock), 1056 ERROR_SERVICE_ALREADY_RUNNING, 1068 ERROR_SERVICE_DEPENDENCY_FAIL (a dependency is stopped:
 * this daemon does not start it), 1072, or the service's own code. */
BOOL StartServiceA(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCSTR *lpServiceArgVectors);

/* Sends a control (1 to 4, 128 to 255) and waits for the service's handler.
 *   lpServiceStatus  the status after it. On failure only state and accepted controls are known, the other words are 0;
 *                    all words are known after a 1061 that found the service dead (state SERVICE_STOPPED).
 * 1052 ERROR_INVALID_SERVICE_CONTROL (not accepted), 1053 (no answer within 25 s, the process lives), 1061
 * ERROR_SERVICE_CANNOT_ACCEPT_CTRL (pending state, or found dead), 1062 ERROR_SERVICE_NOT_ACTIVE (stopped, or its
 * process is gone). Differs from Win32: dependents that run do not stop a stop (EnumDependentServicesA tells them). */
BOOL ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus);

#define SERVICE_CONTROL_STATUS_REASON_INFO 1

/* Why a service is stopped: a kind, a major and a minor reason. */
#define SERVICE_STOP_REASON_FLAG_UNPLANNED 0x10000000
#define SERVICE_STOP_REASON_FLAG_CUSTOM 0x20000000
#define SERVICE_STOP_REASON_FLAG_PLANNED 0x40000000
#define SERVICE_STOP_REASON_MAJOR_OTHER 0x00010000
#define SERVICE_STOP_REASON_MAJOR_HARDWARE 0x00020000
#define SERVICE_STOP_REASON_MAJOR_OPERATINGSYSTEM 0x00030000
#define SERVICE_STOP_REASON_MAJOR_SOFTWARE 0x00040000
#define SERVICE_STOP_REASON_MAJOR_APPLICATION 0x00050000
#define SERVICE_STOP_REASON_MAJOR_NONE 0x00060000
#define SERVICE_STOP_REASON_MINOR_OTHER 0x00000001
#define SERVICE_STOP_REASON_MINOR_MAINTENANCE 0x00000002
#define SERVICE_STOP_REASON_MINOR_INSTALLATION 0x00000003
#define SERVICE_STOP_REASON_MINOR_UPGRADE 0x00000004
#define SERVICE_STOP_REASON_MINOR_RECONFIG 0x00000005
#define SERVICE_STOP_REASON_MINOR_NONE 0x00000017

typedef struct SERVICE_CONTROL_STATUS_REASON_PARAMSA {
    DWORD dwReason;                       /* for SERVICE_CONTROL_STOP: one of the kinds, and what goes with it */
    LPSTR pszComment;                     /* at most 127 bytes; may be null */
    SERVICE_STATUS_PROCESS ServiceStatus; /* receives the status after the control */
} SERVICE_CONTROL_STATUS_REASON_PARAMSA, *PSERVICE_CONTROL_STATUS_REASON_PARAMSA;

typedef struct SERVICE_CONTROL_STATUS_REASON_PARAMSW {
    DWORD dwReason;
    LPWSTR pszComment;
    SERVICE_STATUS_PROCESS ServiceStatus;
} SERVICE_CONTROL_STATUS_REASON_PARAMSW, *PSERVICE_CONTROL_STATUS_REASON_PARAMSW;

/* ControlService with a reason and the process. Reason and comment are checked (87) and then forgotten: nothing here
 * keeps them. dwInfoLevel: SERVICE_CONTROL_STATUS_REASON_INFO, else 124 ERROR_INVALID_LEVEL. */
BOOL ControlServiceExA(SC_HANDLE hService, DWORD dwControl, DWORD dwInfoLevel, LPVOID pControlParams);

/* Reads the status; may be called as often as one likes, also right after a start. Differs from Win32: it is not only a
 * look. A service whose last announced wait has passed is declared dead (SERVICE_STOPPED, 1067 ERROR_PROCESS_ABORTED)
 * by this call. The daemon would do so, too, with a service that was just started and has not reported yet, and with
 * one that announced a wait in its answer to a control; so the library looks first (as tvQueryServiceStatusPassive
 * does) and asks the daemon itself only where that cannot hurt: a service that has been started and stays silent is
 * declared dead when it is seen so for 31 seconds, a wait announced in a control's answer counts from that answer.
 * Of the service in the daemon's record 0, and of one marked for deletion, only state and accepted controls can be seen
 * without asking: while it is SERVICE_START_PENDING and accepts nothing, the other words stay as a start leaves them.
 */
BOOL QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);

/* The same, with the process where it is known. InfoLevel: SC_STATUS_PROCESS_INFO, else 124 ERROR_INVALID_LEVEL.
 *   lpBuffer  receives a SERVICE_STATUS_PROCESS; may be null when cbBufSize is 0 */
BOOL QueryServiceStatusEx(SC_HANDLE hService, SC_STATUS_TYPE InfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded);

/* What NotifyServiceStatusChange waits for. */
#define SERVICE_NOTIFY_STATUS_CHANGE 2
#define SERVICE_NOTIFY_STOPPED 0x0001
#define SERVICE_NOTIFY_START_PENDING 0x0002
#define SERVICE_NOTIFY_STOP_PENDING 0x0004
#define SERVICE_NOTIFY_RUNNING 0x0008
#define SERVICE_NOTIFY_CONTINUE_PENDING 0x0010
#define SERVICE_NOTIFY_PAUSE_PENDING 0x0020
#define SERVICE_NOTIFY_PAUSED 0x0040
#define SERVICE_NOTIFY_CREATED 0x0080
#define SERVICE_NOTIFY_DELETED 0x0100
#define SERVICE_NOTIFY_DELETE_PENDING 0x0200

typedef void (*PFN_SC_NOTIFY_CALLBACK)(LPVOID pParameter); /* gets the record */

typedef struct SERVICE_NOTIFY_2A {
    DWORD dwVersion; /* SERVICE_NOTIFY_STATUS_CHANGE, else 87 */
    PFN_SC_NOTIFY_CALLBACK pfnNotifyCallback;
    LPVOID pContext;                      /* the caller's own */
    DWORD dwNotificationStatus;           /* 0, or why nothing is told below */
    SERVICE_STATUS_PROCESS ServiceStatus; /* as when the change was seen */
    DWORD dwNotificationTriggered;        /* the bit of the mask that came true */
    LPSTR pszServiceNames;                /* null */
} SERVICE_NOTIFY_2A, *PSERVICE_NOTIFY_2A, SERVICE_NOTIFYA, *PSERVICE_NOTIFYA;

typedef struct SERVICE_NOTIFY_2W {
    DWORD dwVersion;
    PFN_SC_NOTIFY_CALLBACK pfnNotifyCallback;
    LPVOID pContext;
    DWORD dwNotificationStatus;
    SERVICE_STATUS_PROCESS ServiceStatus;
    DWORD dwNotificationTriggered;
    LPWSTR pszServiceNames;
} SERVICE_NOTIFY_2W, *PSERVICE_NOTIFY_2W, SERVICE_NOTIFYW, *PSERVICE_NOTIFYW;

/* Asks to be told once that a service is in one of the states of a mask, or marked for deletion. Returns the code, and
 * leaves GetLastError alone.
 *   pNotifyBuffer  the first three words are set by the caller; must stay valid until the callback or
 *                  CloseServiceHandle
 * The first call through a handle tells a state of the mask that the service has already; a later
 * one tells changes since what was told last. One call gives one callback, which may ask again. Differs from Win32: the
 * callback comes not to the calling thread in an alertable wait, of which there are none here, but on a thread of this
 * library, all signals blocked, one callback at a time in a process: it should be short. It may call every function,
 * CloseServiceHandle too. From any other thread CloseServiceHandle waits for a callback that runs for the handle, and
 * none comes after it. A child after fork() has none. Differs also in that the library looks at the service as
 * QueryServiceStatus does, 20 milliseconds after a change and twice a second at last: a state that is over before it is
 * looked at is not told. A mark for deletion ends the waiting: dwNotificationStatus is 0 where the mask has
 * SERVICE_NOTIFY_DELETE_PENDING, else 1072 ERROR_SERVICE_MARKED_FOR_DELETE. So does a look that fails, with its code:
 * 1722 when the daemon is gone. 87 for no bit, for an unknown one, and for the two of a manager's handle with a
 * service's; 120 ERROR_CALL_NOT_IMPLEMENTED for a manager's handle: created and deleted services are not told. 1072 for
 * a service that is marked already, 1242 ERROR_ALREADY_REGISTERED while an earlier call through the handle waits. */
DWORD NotifyServiceStatusChangeA(SC_HANDLE hService, DWORD dwNotifyMask, PSERVICE_NOTIFYA pNotifyBuffer);

/* Lists services, ENUM_SERVICE_STATUSA records in the daemon's order.
 *   dwServiceType   SERVICE_WIN32, SERVICE_DRIVER or both; single bits select the whole class
 *   dwServiceState  SERVICE_ACTIVE, SERVICE_INACTIVE or SERVICE_STATE_ALL
 *   lpServices      may be null when cbBufSize is 0
 *   lpResumeHandle  0 to begin; on 234 the place to go on from, 0 at the end. May be null.
 * 234 ERROR_MORE_DATA when not all fitted; *pcbBytesNeeded is then the room for the rest. 13 ERROR_INVALID_DATA when
 * what the daemon answers does not come to an end. Services marked for deletion are not listed. The service in the
 * daemon's record 0 (the first one created after it started) is the last: the daemon does not list it, so that of its
 * status only type, state and accepted controls are known, the other words are 0. */
BOOL EnumServicesStatusA(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                         LPENUM_SERVICE_STATUSA lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                         LPDWORD lpServicesReturned, LPDWORD lpResumeHandle);

/* The same with ENUM_SERVICE_STATUS_PROCESSA records. InfoLevel: SC_ENUM_PROCESS_INFO, else 124 ERROR_INVALID_LEVEL.
 *   pszGroupName  null: all services; "": those in no load-order group; else the group's, and 1060
 *                 ERROR_SERVICE_DOES_NOT_EXIST when no service at all is in it. A group costs three calls a service. */
BOOL EnumServicesStatusExA(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType, DWORD dwServiceState,
                           LPBYTE lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                           LPDWORD lpResumeHandle, LPCSTR pszGroupName);

/* Lists the services that depend on this one, directly or through others or through a load-order group, in the order in
 * which they have to be stopped. 234 when not all fitted. Worked out from all configurations: three calls a service.
 * tvEnumServiceDependencies lists the other direction. */
BOOL EnumDependentServicesA(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                            DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned);

/* Reads the configuration. lpServiceConfig may be null when cbBufSize is 0. 1016 ERROR_REGISTRY_IO_FAILED when the
 * daemon cannot read the registry, as from ChangeServiceConfigA and EnumDependentServicesA then. */
BOOL QueryServiceConfigA(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGA lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded);

/* Changes the configuration: SERVICE_NO_CHANGE and null leave a field as it is. lpdwTagId asks for a tag. The path is
 * taken as by CreateServiceA, with its codes; a script that is used no more goes. 52
 * ERROR_DUP_NAME (display name taken), 1057, 1059, 1072; 87 and 123 for what is too long, as in CreateServiceA. The
 * password is not used. A load-order group cannot be taken away again: "" names no group but is stored. An account of
 * "" stands for user id 0, other than in CreateServiceA. */
BOOL ChangeServiceConfigA(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCSTR lpBinaryPathName, LPCSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCSTR lpDependencies,
                          LPCSTR lpServiceStartName, LPCSTR lpPassword, LPCSTR lpDisplayName);

/* Further parts of a configuration, dwInfoLevel of ChangeServiceConfig2 and QueryServiceConfig2. They stand as values
 * in the service's registry key, and go with it; the daemon reads none of them. What acts on them:
 *   failure actions           tvhost(8), for the services that it runs and that have no AppRestart: it starts the
 *                             program again and runs the command; the machine is not restarted, nor the message sent
 *   description               stored: for those who list services
 *   everything else           stored only, so that it reads back */
#define SERVICE_CONFIG_DESCRIPTION 1              /* SERVICE_DESCRIPTION */
#define SERVICE_CONFIG_FAILURE_ACTIONS 2          /* SERVICE_FAILURE_ACTIONS */
#define SERVICE_CONFIG_DELAYED_AUTO_START_INFO 3  /* SERVICE_DELAYED_AUTO_START_INFO */
#define SERVICE_CONFIG_FAILURE_ACTIONS_FLAG 4     /* SERVICE_FAILURE_ACTIONS_FLAG */
#define SERVICE_CONFIG_SERVICE_SID_INFO 5         /* SERVICE_SID_INFO */
#define SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO 6 /* SERVICE_REQUIRED_PRIVILEGES_INFO */
#define SERVICE_CONFIG_PRESHUTDOWN_INFO 7         /* SERVICE_PRESHUTDOWN_INFO */

typedef struct SERVICE_DESCRIPTIONA {
    LPSTR lpDescription; /* null: unchanged, and none; "": taken away */
} SERVICE_DESCRIPTIONA, *LPSERVICE_DESCRIPTIONA;

typedef struct SERVICE_DESCRIPTIONW {
    LPWSTR lpDescription;
} SERVICE_DESCRIPTIONW, *LPSERVICE_DESCRIPTIONW;

typedef enum SC_ACTION_TYPE {
    SC_ACTION_NONE = 0,
    SC_ACTION_RESTART = 1,
    SC_ACTION_REBOOT = 2,
    SC_ACTION_RUN_COMMAND = 3
} SC_ACTION_TYPE;

typedef struct SC_ACTION {
    SC_ACTION_TYPE Type;
    DWORD Delay; /* milliseconds */
} SC_ACTION, *LPSC_ACTION;

typedef struct SERVICE_FAILURE_ACTIONSA {
    DWORD dwResetPeriod;    /* seconds; INFINITE for never */
    LPSTR lpRebootMsg;      /* null: unchanged, and none; "": taken away */
    LPSTR lpCommand;        /* likewise */
    DWORD cActions;         /* at most 1024 */
    SC_ACTION *lpsaActions; /* null: actions and period are unchanged; with no actions they are taken away */
} SERVICE_FAILURE_ACTIONSA, *LPSERVICE_FAILURE_ACTIONSA;

typedef struct SERVICE_FAILURE_ACTIONSW {
    DWORD dwResetPeriod;
    LPWSTR lpRebootMsg;
    LPWSTR lpCommand;
    DWORD cActions;
    SC_ACTION *lpsaActions;
} SERVICE_FAILURE_ACTIONSW, *LPSERVICE_FAILURE_ACTIONSW;

typedef struct SERVICE_DELAYED_AUTO_START_INFO {
    BOOL fDelayedAutostart;
} SERVICE_DELAYED_AUTO_START_INFO, *LPSERVICE_DELAYED_AUTO_START_INFO;

typedef struct SERVICE_FAILURE_ACTIONS_FLAG {
    BOOL fFailureActionsOnNonCrashFailures;
} SERVICE_FAILURE_ACTIONS_FLAG, *LPSERVICE_FAILURE_ACTIONS_FLAG;

#define SERVICE_SID_TYPE_NONE 0
#define SERVICE_SID_TYPE_UNRESTRICTED 1
#define SERVICE_SID_TYPE_RESTRICTED 3

typedef struct SERVICE_SID_INFO {
    DWORD dwServiceSidType;
} SERVICE_SID_INFO, *LPSERVICE_SID_INFO;

typedef struct SERVICE_REQUIRED_PRIVILEGES_INFOA {
    LPSTR pmszRequiredPrivileges; /* multi-string; null: taken away, and none */
} SERVICE_REQUIRED_PRIVILEGES_INFOA, *LPSERVICE_REQUIRED_PRIVILEGES_INFOA;

typedef struct SERVICE_REQUIRED_PRIVILEGES_INFOW {
    LPWSTR pmszRequiredPrivileges;
} SERVICE_REQUIRED_PRIVILEGES_INFOW, *LPSERVICE_REQUIRED_PRIVILEGES_INFOW;

typedef struct SERVICE_PRESHUTDOWN_INFO {
    DWORD dwPreshutdownTimeout; /* milliseconds; 180000 when never set */
} SERVICE_PRESHUTDOWN_INFO, *LPSERVICE_PRESHUTDOWN_INFO;

/* Changes one of them; lpInfo is the level's record. The registry is that of the daemon's machine. 124
 * ERROR_INVALID_LEVEL for any other level, 87 for what a record must not hold, 1072 ERROR_SERVICE_MARKED_FOR_DELETE for
 * a service whose key is gone, or a code of the registry: 1016 ERROR_REGISTRY_IO_FAILED when it does not answer. */
BOOL ChangeServiceConfig2A(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo);

/* Reads one of them, the level's record with what it points at behind it; what was never set is 0, null and FALSE. The
 * buffer may be null when cbBufSize is 0. Codes as above, and 13 ERROR_INVALID_DATA for a value of another kind. */
BOOL QueryServiceConfig2A(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded);

/* Takes the database lock; while it is held every start answers 1055, the holder's too. Null and 1055 when it is held
 * already. Nothing times it out; it is given back when the process exits. The owner's name carries user, host, process
 * and the lock's identifier, "root@host pid=7 id=42". */
SC_LOCK LockServiceDatabase(SC_HANDLE hSCManager);
/* Gives the lock back. 1071 ERROR_INVALID_SERVICE_LOCK when it is no longer held under this lock. */
BOOL UnlockServiceDatabase(SC_LOCK ScLock);
/* Who holds the lock, and for how long. lpLockStatus may be null when cbBufSize is 0. */
BOOL QueryServiceLockStatusA(SC_HANDLE hSCManager, LPQUERY_SERVICE_LOCK_STATUSA lpLockStatus, DWORD cbBufSize,
                             LPDWORD pcbBytesNeeded);

/* Translate between the two names of a service, also of one that is marked for deletion.
 *   buffer, *lpcchBuffer  room in characters, terminator included; receives the length without it
 * 122 when the room is too small, 1060 when no service has the name. */
BOOL GetServiceDisplayNameA(SC_HANDLE hSCManager, LPCSTR lpServiceName, LPSTR lpDisplayName, LPDWORD lpcchBuffer);
BOOL GetServiceKeyNameA(SC_HANDLE hSCManager, LPCSTR lpDisplayName, LPSTR lpServiceName, LPDWORD lpcchBuffer);

/* --- client calls of this system only --------------------------------------------------------------------------- */

/* OpenSCManagerA, but also when the daemon could not load its database. *initCode: 0 or 1065; may be null. */
SC_HANDLE tvOpenDaemon(LPCSTR host, LPDWORD initCode);

/* Limits every later call through this handle, and through services opened with it, to so many milliseconds. With null:
 * every call through the handles that are opened from now on, the calls that open them included. */
BOOL tvSetCallTimeout(SC_HANDLE hSCObject, DWORD milliseconds);

/* The null procedure: TRUE once the daemon has answered. */
BOOL tvPingDaemon(SC_HANDLE hSCManager);

/* Ends the daemon; services are left running. TRUE when the request was sent: the daemon gives no answer. */
BOOL tvStopDaemon(SC_HANDLE hSCManager);

/* Reads a service's status without touching it, from the enumeration.
 *   *complete  TRUE: all words are true. FALSE: the service is not enumerated (record 0, marked for deletion); state
 *              and accepted controls are true, the rest is 0. May be null. */
BOOL tvQueryServiceStatusPassive(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus, BOOL *complete);

/* Lists the services that this one depends on, directly or not, the nearest first. 234 when not all fitted. */
BOOL tvEnumServiceDependencies(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSA lpServices,
                               DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned);

/* Frees the database lock whoever holds it: id is the number in the owner's name. 1071 when another one is held. */
BOOL tvUnlockServiceDatabaseById(SC_HANDLE hSCManager, DWORD id);

/* Has the daemon forget a service that is not there any more: reports SERVICE_STOPPED with 1067 ERROR_PROCESS_ABORTED
 * in its place. A process that it may still have is left alone. */
BOOL tvDeclareServiceDead(SC_HANDLE hService);

/* --- the side of a service program ------------------------------------------------------------------------------ */

typedef struct tvServiceStatusHandle *SERVICE_STATUS_HANDLE;

typedef void (*LPSERVICE_MAIN_FUNCTIONA)(DWORD dwNumServicesArgs, LPSTR *lpServiceArgVectors);
typedef void (*LPSERVICE_MAIN_FUNCTIONW)(DWORD dwNumServicesArgs, LPWSTR *lpServiceArgVectors);
typedef void (*LPHANDLER_FUNCTION)(DWORD dwControl);
typedef DWORD (*LPHANDLER_FUNCTION_EX)(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData, LPVOID lpContext);

typedef struct SERVICE_TABLE_ENTRYA {
    LPCSTR lpServiceName; /* with a single entry any name is taken, once */
    LPSERVICE_MAIN_FUNCTIONA lpServiceProc;
} SERVICE_TABLE_ENTRYA, *LPSERVICE_TABLE_ENTRYA;

typedef struct SERVICE_TABLE_ENTRYW {
    LPCWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
} SERVICE_TABLE_ENTRYW, *LPSERVICE_TABLE_ENTRYW;

/* Serves the program's services until all that were started have reported SERVICE_STOPPED; call it first thing in main,
 * before anything slow: the daemon waits 15 seconds for a new process.
 *   lpServiceStartTable  entries, the last one all null; must stay valid
 * Each ServiceMain runs in a thread of its own, control handlers on one other thread, all with the caller's signal
 * mask. Reports SERVICE_START_PENDING with a wait of 30 seconds for a service as soon as it is started. Writes
 * /run/tv/services/NAME.pid, or the same under $XDG_RUNTIME_DIR, where such a file can be made or is there for it, and
 * takes its process id and its port mapper entry away when the process exits.
 *
 * Only root and the user of the parent process, which is the daemon's, may hand over starts and controls; connections
 * of others are closed. A table of one entry serves one service, whose name the first start request tells: a start of
 * another is refused with 1083, in longer tables that of a name which is not among them. A service that runs is not
 * started a second time (1056), nor is one of which another process still runs that was started for it, as the file
 * tells: after a restart of the daemon, or where the daemon has given it up. Then a line on stderr names that process,
 * the service is reported as stopped with 1056, and the other one has to be ended by hand. Once a service has reported
 * SERVICE_STOPPED its process is not in the way of the next one, however long it runs on.
 *
 * 1063 ERROR_FAILED_SERVICE_CONTROLLER_CONNECT when no start request came and none can come: the program can go on in
 * the foreground. The rule: the daemon answers nobody between the fork of a service process and the answer to its
 * start. So after one second without a start the daemon is asked whether it answers; if it does, or if there is no
 * daemon or no port mapper, nobody waits for this process, whatever stood between: a shell, a launcher, env, setpriv. A
 * daemon that is busy with something else (another start, its own beginning) is waited for, up to 60 seconds. 1063 also
 * when the port mapper refuses the entry, with a line on stderr. 1056 when called twice. */
BOOL StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA *lpServiceStartTable);

/* Names the handler of the controls of a service that was started; its ServiceMain calls it first. Null and 1060 when
 * no such service was started. The handler should return at once: the daemon serves nobody else meanwhile. */
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerA(LPCSTR lpServiceName, LPHANDLER_FUNCTION lpHandlerProc);

/* The same with a handler that gets lpContext back, and answers.
 *   lpHandlerProc  dwEventType and lpEventData are 0 and null. What it returns reaches the caller of ControlService as
 *                  its code when it is 120 ERROR_CALL_NOT_IMPLEMENTED; anything else counts as done. */
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExA(LPCSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                    LPVOID lpContext);

/* Reports a service's state. Returns at once, also in a handler: a thread of the library sends the report, and repeats
 * it after a restart of the daemon; of reports made in quick succession only the latest may reach it. Wait hints count
 * only while a state is pending and are rounded up to whole seconds (the daemon's clock ignores parts of one); when a
 * wait has passed without a report, the next question finds the service dead. 13 ERROR_INVALID_DATA for a state that is
 * not one of the seven. */
BOOL SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus, LPSERVICE_STATUS lpServiceStatus);

/* --- the same with UTF-16 --------------------------------------------------------------------------------------- */

/* As their namesakes above, with WCHAR strings. The daemon has names as UTF-8: what is given is converted to it, and
 * text that is no UTF-16 is refused with 1113 ERROR_NO_UNICODE_TRANSLATION; bytes in an answer that are no UTF-8 come
 * back as U+FFFD each. Sizes of buffers are bytes, *lpcchBuffer counts characters; limits hold for the UTF-8. */
SC_HANDLE OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName, DWORD dwDesiredAccess);
SC_HANDLE OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess);
SC_HANDLE CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName, DWORD dwDesiredAccess,
                         DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                         LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                         LPCWSTR lpServiceStartName, LPCWSTR lpPassword);
BOOL StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs, LPCWSTR *lpServiceArgVectors);
BOOL ControlServiceExW(SC_HANDLE hService, DWORD dwControl, DWORD dwInfoLevel, LPVOID pControlParams);
DWORD NotifyServiceStatusChangeW(SC_HANDLE hService, DWORD dwNotifyMask, PSERVICE_NOTIFYW pNotifyBuffer);
BOOL EnumServicesStatusW(SC_HANDLE hSCManager, DWORD dwServiceType, DWORD dwServiceState,
                         LPENUM_SERVICE_STATUSW lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded,
                         LPDWORD lpServicesReturned, LPDWORD lpResumeHandle);
BOOL EnumServicesStatusExW(SC_HANDLE hSCManager, SC_ENUM_TYPE InfoLevel, DWORD dwServiceType, DWORD dwServiceState,
                           LPBYTE lpServices, DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned,
                           LPDWORD lpResumeHandle, LPCWSTR pszGroupName);
BOOL EnumDependentServicesW(SC_HANDLE hService, DWORD dwServiceState, LPENUM_SERVICE_STATUSW lpServices,
                            DWORD cbBufSize, LPDWORD pcbBytesNeeded, LPDWORD lpServicesReturned);
BOOL QueryServiceConfigW(SC_HANDLE hService, LPQUERY_SERVICE_CONFIGW lpServiceConfig, DWORD cbBufSize,
                         LPDWORD pcbBytesNeeded);
BOOL ChangeServiceConfigW(SC_HANDLE hService, DWORD dwServiceType, DWORD dwStartType, DWORD dwErrorControl,
                          LPCWSTR lpBinaryPathName, LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                          LPCWSTR lpServiceStartName, LPCWSTR lpPassword, LPCWSTR lpDisplayName);
BOOL ChangeServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPVOID lpInfo);
BOOL QueryServiceConfig2W(SC_HANDLE hService, DWORD dwInfoLevel, LPBYTE lpBuffer, DWORD cbBufSize,
                          LPDWORD pcbBytesNeeded);
BOOL QueryServiceLockStatusW(SC_HANDLE hSCManager, LPQUERY_SERVICE_LOCK_STATUSW lpLockStatus, DWORD cbBufSize,
                             LPDWORD pcbBytesNeeded);
BOOL GetServiceDisplayNameW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPWSTR lpDisplayName, LPDWORD lpcchBuffer);
BOOL GetServiceKeyNameW(SC_HANDLE hSCManager, LPCWSTR lpDisplayName, LPWSTR lpServiceName, LPDWORD lpcchBuffer);
BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW *lpServiceStartTable);
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR lpServiceName, LPHANDLER_FUNCTION lpHandlerProc);
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExW(LPCWSTR lpServiceName, LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                    LPVOID lpContext);

/* Source compatibility: the names without a suffix. */
#define ENUM_SERVICE_STATUS TV_FORM(ENUM_SERVICE_STATUS)
#define LPENUM_SERVICE_STATUS TV_FORM(LPENUM_SERVICE_STATUS)
#define QUERY_SERVICE_CONFIG TV_FORM(QUERY_SERVICE_CONFIG)
#define LPQUERY_SERVICE_CONFIG TV_FORM(LPQUERY_SERVICE_CONFIG)
#define QUERY_SERVICE_LOCK_STATUS TV_FORM(QUERY_SERVICE_LOCK_STATUS)
#define LPQUERY_SERVICE_LOCK_STATUS TV_FORM(LPQUERY_SERVICE_LOCK_STATUS)
#define SERVICE_TABLE_ENTRY TV_FORM(SERVICE_TABLE_ENTRY)
#define LPSERVICE_TABLE_ENTRY TV_FORM(LPSERVICE_TABLE_ENTRY)
#define LPSERVICE_MAIN_FUNCTION TV_FORM(LPSERVICE_MAIN_FUNCTION)
#define SERVICES_ACTIVE_DATABASE TV_FORM(SERVICES_ACTIVE_DATABASE)
#define SC_GROUP_IDENTIFIER TV_FORM(SC_GROUP_IDENTIFIER)
#define ENUM_SERVICE_STATUS_PROCESS TV_FORM(ENUM_SERVICE_STATUS_PROCESS)
#define LPENUM_SERVICE_STATUS_PROCESS TV_FORM(LPENUM_SERVICE_STATUS_PROCESS)
#define SERVICE_DESCRIPTION TV_FORM(SERVICE_DESCRIPTION)
#define LPSERVICE_DESCRIPTION TV_FORM(LPSERVICE_DESCRIPTION)
#define SERVICE_FAILURE_ACTIONS TV_FORM(SERVICE_FAILURE_ACTIONS)
#define LPSERVICE_FAILURE_ACTIONS TV_FORM(LPSERVICE_FAILURE_ACTIONS)
#define SERVICE_REQUIRED_PRIVILEGES_INFO TV_FORM(SERVICE_REQUIRED_PRIVILEGES_INFO)
#define LPSERVICE_REQUIRED_PRIVILEGES_INFO TV_FORM(LPSERVICE_REQUIRED_PRIVILEGES_INFO)
#define SERVICE_CONTROL_STATUS_REASON_PARAMS TV_FORM(SERVICE_CONTROL_STATUS_REASON_PARAMS)
#define PSERVICE_CONTROL_STATUS_REASON_PARAMS TV_FORM(PSERVICE_CONTROL_STATUS_REASON_PARAMS)
#define SERVICES_FAILED_DATABASE TV_FORM(SERVICES_FAILED_DATABASE)
#define EnumServicesStatusEx TV_FORM(EnumServicesStatusEx)
#define ControlServiceEx TV_FORM(ControlServiceEx)
#define ChangeServiceConfig2 TV_FORM(ChangeServiceConfig2)
#define QueryServiceConfig2 TV_FORM(QueryServiceConfig2)
#define RegisterServiceCtrlHandlerEx TV_FORM(RegisterServiceCtrlHandlerEx)
#define SERVICE_NOTIFY TV_FORM(SERVICE_NOTIFY)
#define PSERVICE_NOTIFY TV_FORM(PSERVICE_NOTIFY)
#define SERVICE_NOTIFY_2 TV_FORM(SERVICE_NOTIFY_2)
#define PSERVICE_NOTIFY_2 TV_FORM(PSERVICE_NOTIFY_2)
#define NotifyServiceStatusChange TV_FORM(NotifyServiceStatusChange)
#define OpenSCManager TV_FORM(OpenSCManager)
#define OpenService TV_FORM(OpenService)
#define CreateService TV_FORM(CreateService)
#define StartService TV_FORM(StartService)
#define EnumServicesStatus TV_FORM(EnumServicesStatus)
#define EnumDependentServices TV_FORM(EnumDependentServices)
#define QueryServiceConfig TV_FORM(QueryServiceConfig)
#define ChangeServiceConfig TV_FORM(ChangeServiceConfig)
#define QueryServiceLockStatus TV_FORM(QueryServiceLockStatus)
#define GetServiceDisplayName TV_FORM(GetServiceDisplayName)
#define GetServiceKeyName TV_FORM(GetServiceKeyName)
#define StartServiceCtrlDispatcher TV_FORM(StartServiceCtrlDispatcher)
#define RegisterServiceCtrlHandler TV_FORM(RegisterServiceCtrlHandler)

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
