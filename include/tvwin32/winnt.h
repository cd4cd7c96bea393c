/* SPDX-License-Identifier: MIT */
/*
 * winnt: text types, the switch between bytes and UTF-16, access rights, and what else lies under the other headers.
 *
 * With UNICODE defined before the first of these headers, TCHAR is the 16-bit WCHAR and every name without suffix means
 * its W form. TEXT("...") is then u"...", or L"..." under -fshort-wchar; a bare L"..." is of another type unless that
 * option is given (tv/wintypes.h).
 */
#ifndef TVWIN32_WINNT_H
#define TVWIN32_WINNT_H

#include "windef.h"

#ifndef VOID
#define VOID void
#endif
typedef char CHAR;
typedef void *PVOID;

/* Strings: of bytes, and of UTF-16. */
typedef char *PCHAR, *LPCH, *PCH, *PSTR, *NPSTR;
typedef const char *LPCCH, *PCCH, *PCSTR;
typedef WCHAR *PWCHAR, *LPWCH, *PWCH, *PWSTR, *NWPSTR;
typedef const WCHAR *LPCWCH, *PCWCH, *PCWSTR;

#if __SIZEOF_WCHAR_T__ == 2
#define TVWIN32_WIDE(text) L##text
#else
#define TVWIN32_WIDE(text) u##text
#endif
#ifdef UNICODE
typedef WCHAR TCHAR;
#define TVWIN32_TEXT(text) TVWIN32_WIDE(text)
#else
typedef char TCHAR;
#define TVWIN32_TEXT(text) text
#endif
#define TEXT(text) TVWIN32_TEXT(text) /* a macro's name is expanded first */
typedef TCHAR *PTCHAR, *PTCH, *LPTCH, *PTSTR, *LPTSTR;
typedef const TCHAR *PCTSTR, *LPCTSTR;

/* Access rights. Nobody checks them. */
typedef DWORD ACCESS_MASK, *PACCESS_MASK;
#define DELETE 0x00010000u
#define READ_CONTROL 0x00020000u
#define WRITE_DAC 0x00040000u
#define WRITE_OWNER 0x00080000u
#define SYNCHRONIZE 0x00100000u
#define STANDARD_RIGHTS_REQUIRED 0x000F0000u
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#define STANDARD_RIGHTS_EXECUTE READ_CONTROL
#define STANDARD_RIGHTS_ALL 0x001F0000u
#define SPECIFIC_RIGHTS_ALL 0x0000FFFFu
#define ACCESS_SYSTEM_SECURITY 0x01000000u
#define MAXIMUM_ALLOWED 0x02000000u
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u

/* Who may use an object. It can be filled in and handed over, and means nothing. */
typedef struct SECURITY_DESCRIPTOR {
    BYTE Revision, Sbz1;
    WORD Control;
    PVOID Owner, Group, Sacl, Dacl;
} SECURITY_DESCRIPTOR;
#define SECURITY_DESCRIPTOR_REVISION 1
#define SECURITY_DESCRIPTOR_MIN_LENGTH sizeof(SECURITY_DESCRIPTOR)

static __inline__ BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
    const SECURITY_DESCRIPTOR empty = {(BYTE)revision, 0, 0, NULL, NULL, NULL, NULL};
    *(SECURITY_DESCRIPTOR *)descriptor = empty;
    return TRUE;
}

static __inline__ BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PVOID dacl,
                                                 BOOL defaulted) {
    (void)defaulted;
    ((SECURITY_DESCRIPTOR *)descriptor)->Dacl = present ? dacl : NULL;
    return TRUE;
}

typedef union LARGE_INTEGER {
    __extension__ struct {
        DWORD LowPart;
        LONG HighPart;
    };
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union ULARGE_INTEGER {
    __extension__ struct {
        DWORD LowPart;
        DWORD HighPart;
    };
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

/* Largest and smallest numbers. */
#define MINCHAR 0x80
#define MAXCHAR 0x7F
#define MAXBYTE 0xFF
#define MAXWORD 0xFFFF
#define MAXDWORD 0xFFFFFFFFu
#define MAXLONG 0x7FFFFFFF

/* Languages, as FormatMessage is told them; there is one. */
#define LANG_NEUTRAL 0x00
#define LANG_ENGLISH 0x09
#define SUBLANG_DEFAULT 0x01
#define SUBLANG_NEUTRAL 0x00
#define SUBLANG_SYS_DEFAULT 0x02
#define SUBLANG_ENGLISH_US 0x01
#define MAKELANGID(primary, sub) ((WORD)(((WORD)(sub) << 10) | (WORD)(primary)))

#define UNREFERENCED_PARAMETER(parameter) ((void)(parameter))
#define DBG_UNREFERENCED_PARAMETER(parameter) ((void)(parameter))
#ifndef ARRAYSIZE
#define ARRAYSIZE(array) (sizeof(array) / sizeof((array)[0]))
#endif
#ifndef _countof
#define _countof(array) (sizeof(array) / sizeof((array)[0]))
#endif

/* Notes of source analysers on parameters. */
#ifndef _In_
#define _In_
#define _In_z_
#define _In_opt_
#define _In_opt_z_
#define _In_reads_(count)
#define _In_reads_opt_(count)
#define _In_reads_bytes_(bytes)
#define _In_reads_bytes_opt_(bytes)
#define _Out_
#define _Out_opt_
#define _Out_writes_(count)
#define _Out_writes_opt_(count)
#define _Out_writes_z_(count)
#define _Out_writes_bytes_(bytes)
#define _Out_writes_bytes_opt_(bytes)
#define _Inout_
#define _Inout_opt_
#define _Inout_z_
#define _Outptr_
#define _Outptr_opt_
#define _Ret_maybenull_
#define _Success_(expression)
#define _Check_return_
#define _Must_inspect_result_
#define _Printf_format_string_
#define _Reserved_
#define _Null_
#endif

#endif
