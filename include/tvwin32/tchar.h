/* SPDX-License-Identifier: MIT */
/*
 * tchar: the string functions of the C library under names that follow _UNICODE.
 *
 * Without _UNICODE they are those of libc. With it they are functions of this header over 16-bit characters, as many as
 * service programs use; letter case is ASCII's. There is no printing and scanning of 16-bit text: _tprintf and its
 * family are there for bytes only.
 */
#ifndef TVWIN32_TCHAR_H
#define TVWIN32_TCHAR_H

#include "winnt.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#define _T(text) TEXT(text)
#define __T(text) TEXT(text)
#define _TEXT(text) TEXT(text)
#define _tmain main /* which gets bytes, whatever _UNICODE says */
typedef TCHAR _TCHAR;

#ifndef _UNICODE

#define _tcslen strlen
#define _tcscpy strcpy
#define _tcsncpy strncpy
#define _tcscat strcat
#define _tcsncat strncat
#define _tcscmp strcmp
#define _tcsncmp strncmp
#define _tcsicmp strcasecmp
#define _tcsnicmp strncasecmp
#define _tcschr strchr
#define _tcsrchr strrchr
#define _tcsstr strstr
#define _tcstok_s strtok_r
#define _tcsdup strdup
#define _tcstol strtol
#define _tcstoul strtoul
#define _ttoi atoi
#define _ttol atol
#define _tprintf printf
#define _ftprintf fprintf
#define _stprintf sprintf
#define _sntprintf snprintf
#define _vsntprintf vsnprintf
#define _tfopen fopen
#define _fputts fputs
#define _putts puts
#define _fgetts fgets
#define _tperror perror
#define _tgetenv getenv
#define _tsystem system

/* Names that other C libraries have for functions of libc. */
#define _stricmp strcasecmp
#define _strnicmp strncasecmp
#define _strdup strdup
#define _snprintf snprintf
#define _vsnprintf vsnprintf

#else

/* As their namesakes for bytes in libc. */
static __inline__ size_t tvWideLength(const WCHAR *text) {
    size_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}

static __inline__ WCHAR *tvWideCopy(WCHAR *to, const WCHAR *from) {
    return (WCHAR *)memcpy(to, from, (tvWideLength(from) + 1) * sizeof *from);
}

static __inline__ WCHAR *tvWideCopyCounted(WCHAR *to, const WCHAR *from, size_t count) {
    size_t i;
    for (i = 0; i < count && from[i] != 0; ++i) {
        to[i] = from[i];
    }
    for (; i < count; ++i) {
        to[i] = 0;
    }
    return to;
}

static __inline__ WCHAR *tvWideAppend(WCHAR *to, const WCHAR *from) {
    (void)tvWideCopy(to + tvWideLength(to), from);
    return to;
}

static __inline__ WCHAR tvWideFolded(WCHAR character, int fold) {
    return fold && character >= 'A' && character <= 'Z' ? (WCHAR)(character + ('a' - 'A')) : character;
}

static __inline__ int tvWideCompare(const WCHAR *a, const WCHAR *b, size_t count, int fold) {
    size_t i;
    for (i = 0; i < count; ++i) {
        const WCHAR one = tvWideFolded(a[i], fold);
        const WCHAR other = tvWideFolded(b[i], fold);
        if (one != other) return one < other ? -1 : 1;
        if (one == 0) break;
    }
    return 0;
}

static __inline__ WCHAR *tvWideFind(const WCHAR *text, WCHAR character) {
    for (; *text != character; ++text) {
        if (*text == 0) return NULL;
    }
    return (WCHAR *)text;
}

static __inline__ WCHAR *tvWideFindLast(const WCHAR *text, WCHAR character) {
    const WCHAR *found = NULL;
    for (;; ++text) {
        if (*text == character) found = text;
        if (*text == 0) return (WCHAR *)found;
    }
}

static __inline__ WCHAR *tvWideFindText(const WCHAR *text, const WCHAR *part) {
    const size_t length = tvWideLength(part);
    for (; tvWideCompare(text, part, length, 0) != 0; ++text) {
        if (*text == 0) return NULL;
    }
    return (WCHAR *)text;
}

static __inline__ WCHAR *tvWideDuplicate(const WCHAR *text) {
    const size_t bytes = (tvWideLength(text) + 1) * sizeof *text;
    WCHAR *copy = (WCHAR *)malloc(bytes);
    return copy != NULL ? (WCHAR *)memcpy(copy, text, bytes) : NULL;
}

#define _tcslen tvWideLength
#define _tcscpy tvWideCopy
#define _tcsncpy tvWideCopyCounted
#define _tcscat tvWideAppend
#define _tcscmp(a, b) tvWideCompare((a), (b), (size_t)-1, 0)
#define _tcsncmp(a, b, count) tvWideCompare((a), (b), (count), 0)
#define _tcsicmp(a, b) tvWideCompare((a), (b), (size_t)-1, 1)
#define _tcsnicmp(a, b, count) tvWideCompare((a), (b), (count), 1)
#define _tcschr tvWideFind
#define _tcsrchr tvWideFindLast
#define _tcsstr tvWideFindText
#define _tcsdup tvWideDuplicate

#endif

#endif
