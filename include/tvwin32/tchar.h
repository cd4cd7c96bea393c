/* SPDX-License-Identifier: MIT */
/*
 * tchar: the string functions of the C library under names that follow _UNICODE.
 *
 * Without _UNICODE they are those of libc. With it they are functions of this header over 16-bit characters, as many as
 * service programs use; letter case, blanks and digits are ASCII's. Texts are printed with the formats of tvFormatWide
 * (tv/winbase.h) and reach streams, files' names and the environment as UTF-8. Differs from Win32 in both forms:
 *   - _sntprintf always terminates, and returns the length that the whole text has;
 *   - _stprintf_s, _tcscpy_s and _tcscat_s end no program: what does not fit is cut, and -1 or 34 is the result.
 * There is no scanning of 16-bit text and no reading of it from streams or the environment.
 */
#ifndef TVWIN32_TCHAR_H
#define TVWIN32_TCHAR_H

#include "winbase.h"

#include <ctype.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#define _T(text) TEXT(text)
#define __T(text) TEXT(text)
#define _TEXT(text) TEXT(text)
#define _tmain main /* which gets bytes, whatever _UNICODE says */
typedef TCHAR _TCHAR;

/* ERANGE, which the functions with _s return here for what they had to cut. */
#define TVWIN32_CUT 34

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
#define _tcsnlen strnlen
#define _tcsspn strspn
#define _tcscspn strcspn
#define _tcspbrk strpbrk
#define _tcstok strtok
#define _tcstok_s strtok_r
#define _tcsdup strdup
#define _tcstol strtol
#define _tcstoul strtoul
#define _ttoi atoi
#define _ttol atol
#define _tprintf printf
#define _ftprintf fprintf
#define _vtprintf vprintf
#define _vftprintf vfprintf
#define _stprintf sprintf
#define _vstprintf vsprintf
#define _sntprintf snprintf
#define _vsntprintf vsnprintf
#define _tfopen fopen
#define _fputts fputs
#define _putts puts
#define _fgetts fgets
#define _tperror perror
#define _tgetenv getenv
#define _tsystem system
#define _istspace isspace
#define _istdigit isdigit
#define _totlower tolower
#define _totupper toupper
#define _tcscpy_s tvTextCopyCut
#define _tcscat_s tvTextAppendCut
#define _stprintf_s tvTextPrintCut

static __inline__ int tvTextCopyCut(char *to, size_t room, const char *from) {
    return room == 0 || (size_t)snprintf(to, room, "%s", from) >= room ? TVWIN32_CUT : 0;
}

static __inline__ int tvTextAppendCut(char *to, size_t room, const char *from) {
    const char *const end = (const char *)memchr(to, 0, room);
    const size_t length = end != NULL ? (size_t)(end - to) : room;
    return tvTextCopyCut(to + length, room - length, from);
}

__attribute__((format(printf, 3, 4))) static __inline__ int tvTextPrintCut(char *to, size_t room, const char *format,
                                                                           ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = vsnprintf(to, room, format, values);
    va_end(values);
    return length >= 0 && (size_t)length < room ? length : -1;
}

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

static __inline__ size_t tvWideLengthWithin(const WCHAR *text, size_t most) {
    size_t length = 0;
    while (length < most && text[length] != 0) {
        ++length;
    }
    return length;
}

static __inline__ int tvWideIsAnyOf(WCHAR character, const WCHAR *set) {
    return character != 0 && tvWideFind(set, character) != NULL;
}

/* How many characters at the beginning are among those of a set, or are not. */
static __inline__ size_t tvWideSpan(const WCHAR *text, const WCHAR *set, int among) {
    size_t length = 0;
    while (text[length] != 0 && tvWideIsAnyOf(text[length], set) == among) {
        ++length;
    }
    return length;
}

static __inline__ WCHAR *tvWideFindAny(const WCHAR *text, const WCHAR *set) {
    const size_t before = tvWideSpan(text, set, 0);
    return text[before] != 0 ? (WCHAR *)(text + before) : NULL;
}

static __inline__ WCHAR *tvWideWord(WCHAR *text, const WCHAR *set, WCHAR **next) {
    WCHAR *word = text != NULL ? text : *next;
    word += tvWideSpan(word, set, 1);
    *next = word + tvWideSpan(word, set, 0);
    if (*next == word) return NULL;
    if (**next != 0) *(*next)++ = 0;
    return word;
}

static __inline__ int tvWideCopyCut(WCHAR *to, size_t room, const WCHAR *from) {
    const size_t length = tvWideLength(from);
    const size_t taken = length < room ? length : room - 1;
    if (room == 0) return TVWIN32_CUT;
    (void)memcpy(to, from, taken * sizeof *to);
    to[taken] = 0;
    return taken == length ? 0 : TVWIN32_CUT;
}

static __inline__ int tvWideAppendCut(WCHAR *to, size_t room, const WCHAR *from) {
    const size_t length = tvWideLengthWithin(to, room);
    return tvWideCopyCut(to + length, room - length, from);
}

/* The number at the beginning of a text, of at most so many characters. */
#define TVWIN32_LONGEST_NUMBER 80

static __inline__ size_t tvWideNumber(const WCHAR *text, char *number) {
    size_t length = 0;
    while (length < TVWIN32_LONGEST_NUMBER && text[length] > 0 && text[length] < 0x80) {
        number[length] = (char)text[length];
        ++length;
    }
    number[length] = 0;
    return length;
}

static __inline__ LONG tvWideToLong(const WCHAR *text, WCHAR **end, int base) {
    char number[TVWIN32_LONGEST_NUMBER + 1];
    char *last = number;
    long long value;
    (void)tvWideNumber(text, number);
    value = strtoll(number, &last, base);
    if (end != NULL) *end = (WCHAR *)text + (last - number);
    return value > INT32_MAX ? INT32_MAX : value < INT32_MIN ? INT32_MIN : (LONG)value;
}

static __inline__ DWORD tvWideToUnsignedLong(const WCHAR *text, WCHAR **end, int base) {
    char number[TVWIN32_LONGEST_NUMBER + 1];
    char *last = number;
    unsigned long long value;
    (void)tvWideNumber(text, number);
    value = strtoull(number, &last, base);
    if (end != NULL) *end = (WCHAR *)text + (last - number);
    return value > UINT32_MAX ? UINT32_MAX : (DWORD)value;
}

/* A text as UTF-8, which the caller frees; null when there is none. */
static __inline__ char *tvWideAsUtf8(const WCHAR *format, va_list values) {
    va_list again;
    int bytes;
    char *text = NULL;
    va_copy(again, values);
    bytes = tvFormatWideAsUtf8(NULL, 0, format, again);
    va_end(again);
    if (bytes >= 0) text = (char *)malloc((size_t)bytes + 1);
    if (text != NULL) (void)tvFormatWideAsUtf8(text, (size_t)bytes + 1, format, values);
    return text;
}

static __inline__ int tvWidePrintV(FILE *stream, const WCHAR *format, va_list values) {
    char *const text = tvWideAsUtf8(format, values);
    const int bytes = text != NULL ? (int)strlen(text) : -1;
    const int written = text != NULL && fputs(text, stream) >= 0;
    free(text);
    return written ? bytes : -1;
}

static __inline__ int tvWidePrintTo(FILE *stream, const WCHAR *format, ...) {
    int bytes;
    va_list values;
    va_start(values, format);
    bytes = tvWidePrintV(stream, format, values);
    va_end(values);
    return bytes;
}

/* Room for _stprintf, which is told none. */
#define TVWIN32_NO_BOUND 0x3FFFFFFF

static __inline__ int tvWidePrint(WCHAR *to, const WCHAR *format, ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = tvFormatWide(to, TVWIN32_NO_BOUND, format, values);
    va_end(values);
    return length;
}

static __inline__ int tvWidePrintWithin(WCHAR *to, size_t room, const WCHAR *format, ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = tvFormatWide(to, room, format, values);
    va_end(values);
    return length;
}

static __inline__ int tvWidePrintCut(WCHAR *to, size_t room, const WCHAR *format, ...) {
    int length;
    va_list values;
    va_start(values, format);
    length = tvFormatWide(to, room, format, values);
    va_end(values);
    return length >= 0 && (size_t)length < room ? length : -1;
}

static __inline__ char *tvWideToUtf8(const WCHAR *format, ...) {
    char *text;
    va_list values;
    va_start(values, format);
    text = tvWideAsUtf8(format, values);
    va_end(values);
    return text;
}

static __inline__ FILE *tvWideOpenFile(const WCHAR *path, const WCHAR *mode) {
    char *const narrowPath = tvWideToUtf8(TVWIN32_WIDE("%s"), path);
    char *const narrowMode = tvWideToUtf8(TVWIN32_WIDE("%s"), mode);
    FILE *const file = narrowPath != NULL && narrowMode != NULL ? fopen(narrowPath, narrowMode) : NULL;
    free(narrowPath);
    free(narrowMode);
    return file;
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
#define _tcsnlen tvWideLengthWithin
#define _tcsspn(text, set) tvWideSpan((text), (set), 1)
#define _tcscspn(text, set) tvWideSpan((text), (set), 0)
#define _tcspbrk tvWideFindAny
#define _tcstok_s tvWideWord
#define _tcscpy_s tvWideCopyCut
#define _tcscat_s tvWideAppendCut
#define _tcstol tvWideToLong
#define _tcstoul tvWideToUnsignedLong
#define _ttoi(text) tvWideToLong((text), NULL, 10)
#define _ttol(text) tvWideToLong((text), NULL, 10)
#define _istspace(character) ((character) < 0x80 && isspace(character))
#define _istdigit(character) ((character) < 0x80 && isdigit(character))
#define _totlower(character) tvWideFolded((character), 1)
#define _tprintf(...) tvWidePrintTo(stdout, __VA_ARGS__)
#define _ftprintf tvWidePrintTo
#define _vtprintf(format, values) tvWidePrintV(stdout, (format), (values))
#define _vftprintf tvWidePrintV
#define _stprintf tvWidePrint
#define _vstprintf(to, format, values) tvFormatWide((to), TVWIN32_NO_BOUND, (format), (values))
#define _sntprintf tvWidePrintWithin
#define _vsntprintf tvFormatWide
#define _stprintf_s tvWidePrintCut
#define _fputts(text, stream) tvWidePrintTo((stream), TVWIN32_WIDE("%s"), (text))
#define _putts(text) tvWidePrintTo(stdout, TVWIN32_WIDE("%s\n"), (text))
#define _tfopen tvWideOpenFile

#endif

#endif
