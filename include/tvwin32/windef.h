/* SPDX-License-Identifier: MIT */
/*
 * windef: the base types and macros that Win32 sources expect, on top of tv/wintypes.h.
 *
 * LONG, ULONG and DWORD are 32 bits on every machine: a printf of one takes %d, %u or %x, not %ld or %lu. Calling
 * conventions are those of Unix: their names stand for nothing. min and max are there for C only, and not with
 * NOMINMAX.
 */
#ifndef TVWIN32_WINDEF_H
#define TVWIN32_WINDEF_H

#include "tv/wintypes.h"

#ifndef NULL
#include <stddef.h>
#endif

/* Calling conventions and storage. */
#define WINAPI
#define WINAPIV
#define APIENTRY
#define CALLBACK
#define PASCAL
#define FAR
#define NEAR
#ifndef __stdcall
#define __stdcall
#endif
#ifndef __cdecl
#define __cdecl
#endif
#ifndef __fastcall
#define __fastcall
#endif
#ifndef __forceinline
#define __forceinline __inline__ __attribute__((always_inline))
#endif
#ifndef __declspec
#define __declspec(attribute) TVWIN32_DECLSPEC_##attribute
#define TVWIN32_DECLSPEC_dllexport __attribute__((visibility("default")))
#define TVWIN32_DECLSPEC_dllimport
#define TVWIN32_DECLSPEC_noinline __attribute__((noinline))
#define TVWIN32_DECLSPEC_noreturn __attribute__((noreturn))
#define TVWIN32_DECLSPEC_nothrow __attribute__((nothrow))
#define TVWIN32_DECLSPEC_thread __thread
#define TVWIN32_DECLSPEC_align(bytes) __attribute__((aligned(bytes)))
#endif
#ifndef __int64
#define __int8 char
#define __int16 short
#define __int32 int
#define __int64 long long
#endif

#ifndef CONST
#define CONST const
#endif
#ifndef IN
#define IN
#endif
#ifndef OUT
#define OUT
#endif
#ifndef OPTIONAL
#define OPTIONAL
#endif

#define MAX_PATH 260

/* Integers. */
typedef int INT, *PINT, *LPINT;
typedef unsigned int UINT, *PUINT, *LPUINT;
typedef int16_t SHORT, *PSHORT;
typedef uint16_t USHORT, *PUSHORT;
typedef LONG *PLONG, *LPLONG;
typedef uint32_t ULONG, *PULONG;
typedef unsigned char UCHAR, *PUCHAR;
typedef float FLOAT, *PFLOAT;
typedef double DOUBLE;
typedef uint8_t BOOLEAN, *PBOOLEAN;
typedef BOOL *PBOOL, *LPBOOL;
typedef BYTE *PBYTE;
typedef WORD *PWORD, *LPWORD;
typedef DWORD *PDWORD;
typedef int64_t LONGLONG, *PLONGLONG;
typedef uint64_t ULONGLONG, *PULONGLONG;
typedef uint64_t DWORDLONG, *PDWORDLONG;
typedef int8_t INT8;
typedef int16_t INT16;
typedef int32_t INT32, LONG32;
typedef int64_t INT64, LONG64;
typedef uint8_t UINT8;
typedef uint16_t UINT16;
typedef uint32_t UINT32, ULONG32, DWORD32;
typedef uint64_t UINT64, ULONG64, DWORD64;

/* Integers as wide as a pointer. */
typedef intptr_t INT_PTR, LONG_PTR, SSIZE_T;
typedef uintptr_t UINT_PTR, ULONG_PTR, SIZE_T;
typedef DWORD_PTR *PDWORD_PTR;
typedef SIZE_T *PSIZE_T;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM, LRESULT;

/* Handles. Kinds that have no functions here are there because sources name them in declarations. */
typedef HANDLE *PHANDLE, *LPHANDLE;
typedef HANDLE HINSTANCE, HMODULE, HLOCAL, HGLOBAL, HWND;
typedef int32_t HRESULT;

#define MAKEWORD(low, high) ((WORD)(((BYTE)((low)&0xFF)) | ((WORD)((BYTE)((high)&0xFF))) << 8))
#define MAKELONG(low, high) ((LONG)(((WORD)((low)&0xFFFF)) | ((DWORD)((WORD)((high)&0xFFFF))) << 16))
#define LOWORD(number) ((WORD)((DWORD_PTR)(number)&0xFFFF))
#define HIWORD(number) ((WORD)(((DWORD_PTR)(number) >> 16) & 0xFFFF))
#define LOBYTE(number) ((BYTE)((DWORD_PTR)(number)&0xFF))
#define HIBYTE(number) ((BYTE)(((DWORD_PTR)(number) >> 8) & 0xFF))

#if !defined(__cplusplus) && !defined(NOMINMAX)
#ifndef min
#define min(a, b) ((a) < (b) ? (a) : (b))
#endif
#ifndef max
#define max(a, b) ((a) > (b) ? (a) : (b))
#endif
#endif

#endif
