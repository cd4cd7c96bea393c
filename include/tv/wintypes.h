/* SPDX-License-Identifier: MIT */
/*
 * wintypes: the Win32 base types as this runtime defines them, for C and C++.
 *
 * The integer types have the same width on every machine: LONG, DWORD, BOOL and HKEY are 32 bits, WCHAR is 16 bits,
 * as on 32-bit Windows, because they travel over the wire and stand in records whose layout is fixed.
 */
#ifndef TV_WINTYPES_H
#define TV_WINTYPES_H

#include <stddef.h>
#include <stdint.h>

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef int32_t LONG;
typedef uint32_t DWORD;
typedef int32_t BOOL;
typedef uintptr_t DWORD_PTR;

/* One UTF-16 code unit, 16 bits whatever the compiler's wchar_t is. A literal of them is u"..." (C11, C++11), not
 * L"...", whose characters have 32 bits here. With the compiler option -fshort-wchar wchar_t has 16 bits and L"..."
 * means the same as u"..."; the wide functions of libc (wcslen, wprintf) must not be called in such a program. The
 * libraries serve programs of both kinds. */
#if !defined(__cplusplus)
typedef uint16_t WCHAR;
#elif __SIZEOF_WCHAR_T__ == 2
typedef wchar_t WCHAR;
#else
typedef char16_t WCHAR;
#endif

/* The form that a name without suffix stands for: bytes, or UTF-16 where UNICODE is defined. */
#ifdef UNICODE
#define TV_FORM(name) name##W
#else
#define TV_FORM(name) name##A
#endif

typedef char *LPSTR;
typedef const char *LPCSTR;
typedef WCHAR *LPWSTR;
typedef const WCHAR *LPCWSTR;
typedef BYTE *LPBYTE;
typedef DWORD *LPDWORD;
typedef void *LPVOID;
typedef const void *LPCVOID;
typedef void *HANDLE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* A time as 100-nanosecond steps since 1601-01-01 UTC, low word first. */
typedef struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME;

typedef struct SECURITY_ATTRIBUTES {
    DWORD nLength;               /* sizeof(SECURITY_ATTRIBUTES), bytes */
    LPVOID lpSecurityDescriptor; /* never sent anywhere */
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef DWORD SECURITY_INFORMATION;
typedef void *PSECURITY_DESCRIPTOR;
typedef DWORD REGSAM; /* access mask of a registry key */

#endif
