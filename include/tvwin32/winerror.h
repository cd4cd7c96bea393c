/* SPDX-License-Identifier: MIT */
/*
 * winerror: the result codes of tv/winerror.h, which this system answers, and those that Win32 sources name beside
 * them, with their Win32 numbers.
 */
#ifndef TVWIN32_WINERROR_H
#define TVWIN32_WINERROR_H

#include "tv/winerror.h"
#include "windef.h"

#define ERROR_INVALID_FUNCTION 1
#define ERROR_TOO_MANY_OPEN_FILES 4
#define ERROR_INVALID_ACCESS 12
#define ERROR_OUTOFMEMORY 14
#define ERROR_NO_MORE_FILES 18
#define ERROR_NOT_READY 21
#define ERROR_BAD_COMMAND 22
#define ERROR_BAD_LENGTH 24
#define ERROR_READ_FAULT 30
#define ERROR_GEN_FAILURE 31
#define ERROR_SHARING_VIOLATION 32
#define ERROR_HANDLE_EOF 38
#define ERROR_FILE_EXISTS 80
#define ERROR_BROKEN_PIPE 109
#define ERROR_OPEN_FAILED 110
#define ERROR_BUFFER_OVERFLOW 111
#define ERROR_SEM_TIMEOUT 121
#define ERROR_PROC_NOT_FOUND 127
#define ERROR_DIR_NOT_EMPTY 145
#define ERROR_BAD_ARGUMENTS 160
#define ERROR_BUSY 170
#define ERROR_BAD_PIPE 230
#define ERROR_NO_DATA 232
#define ERROR_OPERATION_ABORTED 995
#define ERROR_IO_INCOMPLETE 996
#define ERROR_IO_PENDING 997
#define ERROR_NOACCESS 998
#define ERROR_INVALID_FLAGS 1004
#define ERROR_ALREADY_RUNNING_LKG 1074
#define ERROR_BOOT_ALREADY_ACCEPTED 1076
#define ERROR_DIFFERENT_SERVICE_ACCOUNT 1079
#define ERROR_CANNOT_DETECT_DRIVER_FAILURE 1080
#define ERROR_CANNOT_DETECT_PROCESS_ABORT 1081
#define ERROR_NO_RECOVERY_PROGRAM 1082
#define ERROR_SHUTDOWN_IN_PROGRESS 1115
#define ERROR_IO_DEVICE 1117
#define ERROR_NOT_FOUND 1168
#define ERROR_CANCELLED 1223
#define ERROR_PRIVILEGE_NOT_HELD 1314
#define ERROR_LOGON_FAILURE 1326
#define ERROR_INTERNAL_ERROR 1359
#define ERROR_NO_SYSTEM_RESOURCES 1450
#define ERROR_INVALID_STATE 5023

/* HRESULT: a code with its sign as success or failure. */
#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_NOTIMPL ((HRESULT)0x80004001u)
#define E_POINTER ((HRESULT)0x80004003u)
#define E_ABORT ((HRESULT)0x80004004u)
#define E_FAIL ((HRESULT)0x80004005u)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFu)
#define E_ACCESSDENIED ((HRESULT)0x80070005u)
#define E_HANDLE ((HRESULT)0x80070006u)
#define E_OUTOFMEMORY ((HRESULT)0x8007000Eu)
#define E_INVALIDARG ((HRESULT)0x80070057u)
#define FACILITY_WIN32 7
#define SUCCEEDED(result) ((HRESULT)(result) >= 0)
#define FAILED(result) ((HRESULT)(result) < 0)
#define HRESULT_CODE(result) ((result)&0xFFFF)
#define HRESULT_FROM_WIN32(code)                                                                                       \
    ((HRESULT)(code) <= 0 ? (HRESULT)(code)                                                                            \
                          : (HRESULT)(((DWORD)(code)&0xFFFFu) | ((DWORD)FACILITY_WIN32 << 16) | 0x80000000u))

#endif
