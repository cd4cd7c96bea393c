/* SPDX-License-Identifier: MIT */
/*
 * winbase: tv/winbase.h, and the macros that Win32 sources expect beside it.
 */
#ifndef TVWIN32_WINBASE_H
#define TVWIN32_WINBASE_H

#include "tv/winbase.h"
#include "winerror.h"
#include "winnt.h"

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

typedef FILETIME *LPFILETIME;
typedef SECURITY_ATTRIBUTES *PSECURITY_ATTRIBUTES;

#endif
