/* SPDX-License-Identifier: MIT */
/*
 * winbase: what Win32 service programs use between their service calls, for C and C++. Library: tvbase.
 *
 * Each function stands for something that Unix has under another name, and is as small as that allows; there are no
 * files, no windows and no sockets. What all of them share:
 *   - A BOOL function returns FALSE when it failed, a handle function null; GetLastError then tells the code. A success
 *     leaves GetLastError as it was, unless the function says otherwise.
 *   - 6 ERROR_INVALID_HANDLE for a handle that is not open or of the wrong kind: handles are looked up, not
 *     followed, so that a stale one is refused. 87 ERROR_INVALID_PARAMETER for a null pointer where one is required, 8
 *     ERROR_NOT_ENOUGH_MEMORY.
 *   - The W forms take and give UTF-16 and do the same as the A forms, which take and give bytes; 1113
 *     ERROR_NO_UNICODE_TRANSLATION for text that cannot be converted, and counts are 16-bit characters.
 *   - Security attributes and access rights are accepted and mean nothing.
 *   - Every function may be called from any thread. A child after fork() has the parent's events, but none of its
 *     threads, and its waits for processes do not end.
 */
#ifndef TV_WINBASE_H
#define TV_WINBASE_H

#include "tv/lasterror.h"
#include "tv/winerror.h"
#include "tv/wintypes.h"

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE ((HANDLE)(intptr_t)-1)

/* --- handles and waiting ---------------------------------------------------------------------------------------- */

/* Closes a handle of an event, a thread or a process. What it named lives on while another handle, a wait or the thread
 * itself needs it. The handle of an event source is DeregisterEventSource's, the pseudo handles below are TRUE. */
BOOL CloseHandle(HANDLE hObject);

#define MAXIMUM_WAIT_OBJECTS 64
#define WAIT_OBJECT_0 0u
#define WAIT_ABANDONED 0x80u
#define WAIT_ABANDONED_0 0x80u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu

/* Waits until an event is set, a thread has ended or a process has ended; takes the signal of an event that resets
 * itself.
 *   dwMilliseconds  INFINITE for no end; 0 looks only. Counted by a clock that nobody sets
 * WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED. Threads that wait for one event are served in no particular order. */
DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);

/* The same for several, 1 to MAXIMUM_WAIT_OBJECTS (87).
 *   bWaitAll  TRUE: until all are signalled at the same moment, nothing is taken before; a handle twice is 87.
 *             FALSE: WAIT_OBJECT_0 plus the lowest index that is signalled; only that one is taken */
DWORD WaitForMultipleObjects(DWORD nCount, const HANDLE *lpHandles, BOOL bWaitAll, DWORD dwMilliseconds);

/* --- events ----------------------------------------------------------------------------------------------------- */

#define EVENT_MODIFY_STATE 0x0002u
#define EVENT_ALL_ACCESS 0x1F0003u

/* Makes an event.
 *   bManualReset   TRUE: set until ResetEvent; FALSE: a wait that it ends resets it
 *   bInitialState  whether it is set at first
 *   lpName         null, or a name under which this process finds the event again, letter case included: it is opened
 *                  then, as it is, and GetLastError is 183 ERROR_ALREADY_EXISTS; after making a new one 0. Differs from
 *                  Win32: other processes do not see it, whatever prefix the name has */
HANDLE CreateEventA(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName);
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName);

/* Opens an event of this process by its name. 2 ERROR_FILE_NOT_FOUND when it has none of that name. */
HANDLE OpenEventA(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCSTR lpName);
HANDLE OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);

/* Set an event, and take it back. */
BOOL SetEvent(HANDLE hEvent);
BOOL ResetEvent(HANDLE hEvent);

/* --- threads ---------------------------------------------------------------------------------------------------- */

#define STILL_ACTIVE 259u
#define STACK_SIZE_PARAM_IS_A_RESERVATION 0x00010000u

typedef DWORD (*LPTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);
typedef LPTHREAD_START_ROUTINE PTHREAD_START_ROUTINE;

/* Starts a thread.
 *   dwStackSize      bytes; below what this system's threads have anyway it means nothing
 *   dwCreationFlags  0 or STACK_SIZE_PARAM_IS_A_RESERVATION, else 87: a thread starts at once
 *   lpThreadId       may be null
 * Returns a handle that is signalled when the thread ends. It has the signal mask of its maker. 8 when the system gives
 * no thread. There is no way to suspend a thread or to end it from outside. */
HANDLE CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, size_t dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                    LPVOID lpParameter, DWORD dwCreationFlags, LPDWORD lpThreadId);

/* Ends the calling thread, C++ destructors included. The exit code is kept for threads of CreateThread. */
__attribute__((noreturn)) void ExitThread(DWORD dwExitCode);

/* STILL_ACTIVE while it runs. A thread that ended with pthread_exit has 0. */
BOOL GetExitCodeThread(HANDLE hThread, LPDWORD lpExitCode);

/* A pseudo handle: whoever uses it means the calling thread. */
HANDLE GetCurrentThread(void);
/* The kernel's number of the thread, as ps -L and gdb show it. */
DWORD GetCurrentThreadId(void);

/* Sleeps; INFINITE for ever, 0 lets others run. */
void Sleep(DWORD dwMilliseconds);

/* --- processes -------------------------------------------------------------------------------------------------- */

#define PROCESS_TERMINATE 0x0001u
#define PROCESS_QUERY_INFORMATION 0x0400u
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000u
#define PROCESS_ALL_ACCESS 0x1FFFFFu

/* Opens a process by its id, to wait for its end, such as a service's. 87 when there is none; 50 ERROR_NOT_SUPPORTED on
 * a kernel without process descriptors (before Linux 5.3). */
HANDLE OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId);

typedef struct STARTUPINFOA {
    DWORD cb;
    LPSTR lpReserved, lpDesktop, lpTitle;
    DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute;
    DWORD dwFlags; /* STARTF_USESTDHANDLES is refused; nothing else is looked at */
    WORD wShowWindow, cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput, hStdOutput, hStdError;
} STARTUPINFOA, *LPSTARTUPINFOA;

typedef struct STARTUPINFOW {
    DWORD cb;
    LPWSTR lpReserved, lpDesktop, lpTitle;
    DWORD dwX, dwY, dwXSize, dwYSize, dwXCountChars, dwYCountChars, dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow, cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput, hStdOutput, hStdError;
} STARTUPINFOW, *LPSTARTUPINFOW;

#define STARTF_USESHOWWINDOW 0x0001u
#define STARTF_USESTDHANDLES 0x0100u

typedef struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread; /* another handle of the process; both are the caller's to close */
    DWORD dwProcessId;
    DWORD dwThreadId;
} PROCESS_INFORMATION, *PPROCESS_INFORMATION, *LPPROCESS_INFORMATION;

#define CREATE_SUSPENDED 0x00000004u
#define DETACHED_PROCESS 0x00000008u
#define CREATE_NEW_CONSOLE 0x00000010u
#define NORMAL_PRIORITY_CLASS 0x00000020u
#define CREATE_NEW_PROCESS_GROUP 0x00000200u
#define CREATE_UNICODE_ENVIRONMENT 0x00000400u
#define CREATE_NO_WINDOW 0x08000000u

/* Starts a program, with this process's open descriptors and signal mask.
 *   lpApplicationName   its path, or its name for a search in PATH; null: the first word of the line
 *   lpCommandLine       the arguments, the program's own name the first of them, taken apart as Win32 programs do;
 *                       null: the name alone
 *   dwCreationFlags     CREATE_NEW_PROCESS_GROUP is obeyed, and CREATE_UNICODE_ENVIRONMENT says which kind of
 *                       characters lpEnvironment has; CREATE_SUSPENDED is 87; the others mean nothing
 *   lpEnvironment       multi-string of "NAME=value"; null for this process's own
 *   lpCurrentDirectory  null for this process's own
 *   lpStartupInfo       may be null
 * 2 ERROR_FILE_NOT_FOUND, 5 ERROR_ACCESS_DENIED, 193 ERROR_BAD_EXE_FORMAT as the program could not be executed. The
 * library waits for its end: waitpid(2) does not find it. */
BOOL CreateProcessA(LPCSTR lpApplicationName, LPSTR lpCommandLine, LPSECURITY_ATTRIBUTES lpProcessAttributes,
                    LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles, DWORD dwCreationFlags,
                    LPVOID lpEnvironment, LPCSTR lpCurrentDirectory, LPSTARTUPINFOA lpStartupInfo,
                    LPPROCESS_INFORMATION lpProcessInformation);
BOOL CreateProcessW(LPCWSTR lpApplicationName, LPWSTR lpCommandLine, LPSECURITY_ATTRIBUTES lpProcessAttributes,
                    LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles, DWORD dwCreationFlags,
                    LPVOID lpEnvironment, LPCWSTR lpCurrentDirectory, LPSTARTUPINFOW lpStartupInfo,
                    LPPROCESS_INFORMATION lpProcessInformation);

/* Kills a process; through this handle its exit code is uExitCode from its end on. 5 ERROR_ACCESS_DENIED when it has
 * ended or may not be killed. The calling process ends at once, with the low eight bits as in ExitProcess. */
BOOL TerminateProcess(HANDLE hProcess, unsigned uExitCode);

/* STILL_ACTIVE while it runs. Differs from Win32: what code a process ended with is told to its parent only, so that
 * for others it is 0 then and GetLastError 50 ERROR_NOT_SUPPORTED, the result FALSE. */
BOOL GetExitCodeProcess(HANDLE hProcess, LPDWORD lpExitCode);

/* A pseudo handle: whoever uses it means the calling process. */
HANDLE GetCurrentProcess(void);
/* As getpid(2) tells it. */
DWORD GetCurrentProcessId(void);

/* Ends this process as exit() does, with the low eight bits of the code; with 255 when those are 0 and the code is
 * not, so that a failure stays one. */
__attribute__((noreturn)) void ExitProcess(unsigned uExitCode);

/* --- critical sections ------------------------------------------------------------------------------------------ */

/* A lock among the threads of a process, which its owner may enter again. Never copy it, never look inside. */
typedef struct CRITICAL_SECTION {
    uint64_t opaque[8];
} CRITICAL_SECTION, *PCRITICAL_SECTION, *LPCRITICAL_SECTION;

/* Make, enter and leave such a lock; TryEnterCriticalSection does not wait and is FALSE where it would have to. */
void InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
void EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
void LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
void DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection);
/* TRUE; the count means nothing. */
BOOL InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION lpCriticalSection, DWORD dwSpinCount);

/* --- time ------------------------------------------------------------------------------------------------------- */

/* Milliseconds since the machine was started, the time it slept included. The short one turns over after 49.7 days. */
DWORD GetTickCount(void);
uint64_t GetTickCount64(void);

/* --- this program ----------------------------------------------------------------------------------------------- */

/* The path of the running program's file, as the kernel has it: absolute, symbolic links resolved.
 *   hModule  null or what GetModuleHandle gives; else 126 ERROR_MOD_NOT_FOUND
 *   nSize    room in characters, terminator included
 * Returns the length without the terminator. A path that does not fit is cut and terminated, nSize returned, and
 * GetLastError is 122 ERROR_INSUFFICIENT_BUFFER. 0 when it failed. */
DWORD GetModuleFileNameA(HANDLE hModule, LPSTR lpFilename, DWORD nSize);
DWORD GetModuleFileNameW(HANDLE hModule, LPWSTR lpFilename, DWORD nSize);

/* With null a handle for the program itself, never to be followed or closed; 126 for any name: libraries have none. */
HANDLE GetModuleHandleA(LPCSTR lpModuleName);
HANDLE GetModuleHandleW(LPCWSTR lpModuleName);

/* The program's arguments in one line, quoted as Win32 programs take lines apart: blanks in quotes, quotes behind a
 * backslash. Static; the same in every call. Null and 1113 when W cannot convert it. */
LPSTR GetCommandLineA(void);
LPWSTR GetCommandLineW(void);

/* Writes a text to standard error as it is. Differs from Win32: somebody may see it without a debugger. */
void OutputDebugStringA(LPCSTR lpOutputString);
void OutputDebugStringW(LPCWSTR lpOutputString);

/* A variable of the environment.
 *   nSize  room in characters, terminator included
 * Returns the length without the terminator; the room that it needs, nothing written, when there is too little; 0 and
 * 203 ERROR_ENVVAR_NOT_FOUND when there is no such variable. An empty one is 0, and GetLastError 0. */
DWORD GetEnvironmentVariableA(LPCSTR lpName, LPSTR lpBuffer, DWORD nSize);
DWORD GetEnvironmentVariableW(LPCWSTR lpName, LPWSTR lpBuffer, DWORD nSize);

/* Sets a variable, takes it away with a null value. As setenv(3), it must not race with other threads that read the
 * environment. 87 for a name that is empty or has an equals sign in it. */
BOOL SetEnvironmentVariableA(LPCSTR lpName, LPCSTR lpValue);
BOOL SetEnvironmentVariableW(LPCWSTR lpName, LPCWSTR lpValue);

/* The present folder. Lengths as in GetEnvironmentVariable. */
DWORD GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer);
DWORD GetCurrentDirectoryW(DWORD nBufferLength, LPWSTR lpBuffer);
/* Goes to another folder. 2 ERROR_FILE_NOT_FOUND, 5 ERROR_ACCESS_DENIED. */
BOOL SetCurrentDirectoryA(LPCSTR lpPathName);
BOOL SetCurrentDirectoryW(LPCWSTR lpPathName);

/* A path from the root on, without "." and ".."; whether there is such a file does not matter. Lengths as in
 * GetEnvironmentVariable.
 *   lpFilePart  may be null; receives the place of the name behind the last slash, null when there is none */
DWORD GetFullPathNameA(LPCSTR lpFileName, DWORD nBufferLength, LPSTR lpBuffer, LPSTR *lpFilePart);
DWORD GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength, LPWSTR lpBuffer, LPWSTR *lpFilePart);

/* --- memory ----------------------------------------------------------------------------------------------------- */

#define LMEM_FIXED 0x0000u
#define LMEM_ZEROINIT 0x0040u
#define LPTR 0x0040u

/* Memory of malloc; zeroes with LMEM_ZEROINIT. Other flags are 87. Null and 8 when there is none. */
HANDLE LocalAlloc(unsigned uFlags, size_t uBytes);
/* Frees what LocalAlloc or FormatMessage gave; null is let pass. Returns null. */
HANDLE LocalFree(HANDLE hMem);

/* --- messages --------------------------------------------------------------------------------------------------- */

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x0100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x0200u
#define FORMAT_MESSAGE_FROM_STRING 0x0400u
#define FORMAT_MESSAGE_FROM_HMODULE 0x0800u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x1000u
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x2000u
#define FORMAT_MESSAGE_MAX_WIDTH_MASK 0x00FFu

/* Writes what a result code says, in English, a sentence with "\r\n" behind it; or a text of the caller's with inserts.
 *   dwFlags       FROM_SYSTEM: dwMessageId is a code of tv/winerror.h; 317 ERROR_MR_MID_NOT_FOUND for any other.
 *                 FROM_STRING: lpSource is the text. Without either, and with FROM_HMODULE alone: 87 and 317: programs
 *                 have no message tables here.
 *                 ALLOCATE_BUFFER: lpBuffer points at a pointer that receives memory for LocalFree; nSize is the least
 *                 room. MAX_WIDTH_MASK: no line breaks, a blank at the end. A width is not obeyed otherwise
 *   dwLanguageId  means nothing
 *   nSize         room of lpBuffer in characters, terminator included; 122 when the text needs more
 *   Arguments     for the inserts %1 to %99 of a text, a va_list, or with ARGUMENT_ARRAY an array of words of pointer
 *                 width. An insert is a string, of W in the W form; !s!, !d!, !i!, !u!, !x!, !X!, !c!, with l or a
 *                 width before it, say otherwise (%1!08lx!). %% %n %t %r %b %. %! and %0 at the end are obeyed. With
 *                 IGNORE_INSERTS all of them stay as they are; without it a null Arguments is 87 where one is needed
 * Returns the characters written without the terminator, 0 when it failed. */
DWORD FormatMessageA(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD dwLanguageId, LPSTR lpBuffer,
                     DWORD nSize, va_list *Arguments);
DWORD FormatMessageW(DWORD dwFlags, const void *lpSource, DWORD dwMessageId, DWORD dwLanguageId, LPWSTR lpBuffer,
                     DWORD nSize, va_list *Arguments);

/* --- UTF-16 text ------------------------------------------------------------------------------------------------ */

/* Format text of 16-bit characters, which the printf functions of libc cannot.
 *   to      the text, or the text as UTF-8; always terminated, cut to the room
 *   room    characters or bytes, terminator included; 0: to may be null
 *   format  %d %i %u %x %X %o, with h, hh, ll, I64, z, j, t or I; without one of them or with l the value has 32 bits,
 *           as LONG and DWORD; %f %F %e %E %g %G %a %A; %p, all digits; %s and %c take 16-bit characters, as do %ls and
 *           %lc, %S, %hs, %C and %hc take bytes, UTF-8, and what is none becomes U+FFFD; flags, width and precision
 *           are obeyed, counted in 16-bit characters (of %hs the precision in bytes); %%. There is no %n
 *   values  as va_start made them; the caller ends them
 * Return the length of the whole text without the terminator; -1, to empty, and 87 for a format that is not
 * understood, 1113 ERROR_NO_UNICODE_TRANSLATION where UTF-8 was wanted of what is no UTF-16. */
int tvFormatWide(LPWSTR to, size_t room, LPCWSTR format, va_list values);
int tvFormatWideAsUtf8(LPSTR to, size_t room, LPCWSTR format, va_list values);

/* --- event log -------------------------------------------------------------------------------------------------- */

#define EVENTLOG_SUCCESS 0x0000u
#define EVENTLOG_ERROR_TYPE 0x0001u
#define EVENTLOG_WARNING_TYPE 0x0002u
#define EVENTLOG_INFORMATION_TYPE 0x0004u
#define EVENTLOG_AUDIT_SUCCESS 0x0008u
#define EVENTLOG_AUDIT_FAILURE 0x0010u

/* Opens the log of this machine, which is the systemd journal where it runs and syslog(3) elsewhere.
 *   lpUNCServerName  null; 1722 RPC_S_SERVER_UNAVAILABLE for another machine
 *   lpSourceName     what writes; it is the tag of each line. 87 when empty. No registration is needed
 * Close with DeregisterEventSource. */
HANDLE RegisterEventSourceA(LPCSTR lpUNCServerName, LPCSTR lpSourceName);
HANDLE RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName);
BOOL DeregisterEventSource(HANDLE hEventLog);

/* Writes one entry.
 *   wType         its priority: an error is err, a warning warning, an audit that failed notice, the rest info; any
 *                 other type is 87
 *   lpUserSid     means nothing
 *   wNumStrings   of lpStrings, 256 at most (87); no string may be null
 *   dwDataSize    bytes of lpRawData
 * The entry's text are the strings, joined by blanks, or "event ID" when there are none: message tables are not read.
 * The journal's entry has fields beside MESSAGE, PRIORITY and SYSLOG_IDENTIFIER: TV_EVENT_ID, TV_EVENT_TYPE (error,
 * warning, information, success, audit_success, audit_failure), TV_EVENT_CATEGORY, TV_EVENT_STRING_1 and on for each
 * string as it is, TV_EVENT_DATA for the raw data. syslog(3) gets the text alone, which it cuts at its own limits.
 * 29 ERROR_WRITE_FAULT when the journal refuses the entry. */
BOOL ReportEventA(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID, LPVOID lpUserSid, WORD wNumStrings,
                  DWORD dwDataSize, LPCSTR *lpStrings, LPVOID lpRawData);
BOOL ReportEventW(HANDLE hEventLog, WORD wType, WORD wCategory, DWORD dwEventID, LPVOID lpUserSid, WORD wNumStrings,
                  DWORD dwDataSize, LPCWSTR *lpStrings, LPVOID lpRawData);

/* Source compatibility: the names without a suffix. */
#define CreateEvent TV_FORM(CreateEvent)
#define OpenEvent TV_FORM(OpenEvent)
#define GetModuleFileName TV_FORM(GetModuleFileName)
#define GetModuleHandle TV_FORM(GetModuleHandle)
#define GetCommandLine TV_FORM(GetCommandLine)
#define STARTUPINFO TV_FORM(STARTUPINFO)
#define LPSTARTUPINFO TV_FORM(LPSTARTUPINFO)
#define CreateProcess TV_FORM(CreateProcess)
#define GetEnvironmentVariable TV_FORM(GetEnvironmentVariable)
#define SetEnvironmentVariable TV_FORM(SetEnvironmentVariable)
#define GetCurrentDirectory TV_FORM(GetCurrentDirectory)
#define SetCurrentDirectory TV_FORM(SetCurrentDirectory)
#define GetFullPathName TV_FORM(GetFullPathName)
#define OutputDebugString TV_FORM(OutputDebugString)
#define FormatMessage TV_FORM(FormatMessage)
#define RegisterEventSource TV_FORM(RegisterEventSource)
#define ReportEvent TV_FORM(ReportEvent)

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
