/* SPDX-License-Identifier: MIT */
/*
 * winbase: tv/winbase.h, and the macros that Win32 sources expect beside it.
 */
#ifndef TVWIN32_WINBASE_H
#define TVWIN32_WINBASE_H

#include "tv/winbase.h"
#include "winerror.h"
#include "winnt.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#define CopyMemory(to, from, bytes) ((void)memcpy((to), (from), (bytes)))
#define MoveMemory(to, from, bytes) ((void)memmove((to), (from), (bytes)))
#define FillMemory(to, bytes, value) ((void)memset((to), (value), (bytes)))
#define ZeroMemory(to, bytes) ((void)memset((to), 0, (bytes)))
#define RtlCopyMemory CopyMemory
#define RtlMoveMemory MoveMemory
#define RtlFillMemory FillMemory
#define RtlZeroMemory ZeroMemory

/* Stays in the program even where nobody reads the memory any more. */
static __inline__ void *SecureZeroMemory(void *to, SIZE_T bytes) {
    memset(to, 0, bytes);
    __asm__ __volatile__("" : : "r"(to) : "memory");
    return to;
}

/* Print into a buffer of 1025 characters, which is the longest text with its terminator; more is cut. The W form takes
 * the formats of tvFormatWide. */
#define TVWIN32_WSPRINTF_ROOM 1025

static __inline__ int wvsprintfW(LPWSTR to, LPCWSTR format, va_list values) {
    const int length = tvFormatWide(to, TVWIN32_WSPRINTF_ROOM, format, values);
    return length < TVWIN32_WSPRINTF_ROOM ? length : TVWIN32_WSPRINTF_ROOM - 1;
}

static __inline__ int wsprintfW(LPWSTR to, LPCWSTR format, ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = wvsprintfW(to, format, values);
    va_end(values);
    return length;
}

__attribute__((format(printf, 2, 0))) static __inline__ int wvsprintfA(LPSTR to, LPCSTR format, va_list values) {
    const int length = vsnprintf(to, TVWIN32_WSPRINTF_ROOM, format, values);
    return length < TVWIN32_WSPRINTF_ROOM ? length : TVWIN32_WSPRINTF_ROOM - 1;
}

__attribute__((format(printf, 2, 3))) static __inline__ int wsprintfA(LPSTR to, LPCSTR format, ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = wvsprintfA(to, format, values);
    va_end(values);
    return length;
}

#define wsprintf TV_FORM(wsprintf)
#define wvsprintf TV_FORM(wvsprintf)

typedef FILETIME *LPFILETIME;
typedef SECURITY_ATTRIBUTES *PSECURITY_ATTRIBUTES;

#endif
