/* SPDX-License-Identifier: MIT */
/*
 * strsafe: string functions that always terminate and never write past their room.
 *
 * Each answers S_OK; STRSAFE_E_INSUFFICIENT_BUFFER when the text was cut to the room, its end terminated; or
 * STRSAFE_E_INVALID_PARAMETER for no room at all or more than STRSAFE_MAX_CCH characters, nothing written. Cch
 * functions count characters, Cb functions bytes, the terminator included. The W forms of the printing ones take the
 * formats of tvFormatWide (tv/winbase.h).
 */
#ifndef TVWIN32_STRSAFE_H
#define TVWIN32_STRSAFE_H

#include "winbase.h"

#include <stdarg.h>
#include <stdio.h>

#define STRSAFE_MAX_CCH 2147483647
#define STRSAFE_E_INSUFFICIENT_BUFFER ((HRESULT)0x8007007Au)
#define STRSAFE_E_INVALID_PARAMETER ((HRESULT)0x80070057u)
#define STRSAFE_E_END_OF_FILE ((HRESULT)0x80070026u)

#define TVWIN32_IS_ROOM(room) ((room) != 0 && (room) <= STRSAFE_MAX_CCH)

/* The forms for one kind of character: length, copy and append. */
#define TVWIN32_STRSAFE_FORMS(Form, Char)                                                                              \
    static __inline__ HRESULT StringCchLength##Form(const Char *text, size_t room, size_t *length) {                   \
        size_t i = 0;                                                                                                  \
        if (length != NULL) *length = 0;                                                                               \
        if (text == NULL || !TVWIN32_IS_ROOM(room)) return STRSAFE_E_INVALID_PARAMETER;                                \
        while (i < room && text[i] != 0) {                                                                             \
            ++i;                                                                                                       \
        }                                                                                                              \
        if (i == room) return STRSAFE_E_INVALID_PARAMETER;                                                             \
        if (length != NULL) *length = i;                                                                               \
        return S_OK;                                                                                                   \
    }                                                                                                                  \
    static __inline__ HRESULT StringCchCopyN##Form(Char *to, size_t room, const Char *from, size_t count) {            \
        size_t i = 0;                                                                                                  \
        if (!TVWIN32_IS_ROOM(room)) return STRSAFE_E_INVALID_PARAMETER;                                                \
        while (i + 1 < room && i < count && from[i] != 0) {                                                            \
            to[i] = from[i];                                                                                           \
            ++i;                                                                                                       \
        }                                                                                                              \
        to[i] = 0;                                                                                                     \
        return i == count || from[i] == 0 ? S_OK : STRSAFE_E_INSUFFICIENT_BUFFER;                                      \
    }                                                                                                                  \
    static __inline__ HRESULT StringCchCopy##Form(Char *to, size_t room, const Char *from) {                           \
        return StringCchCopyN##Form(to, room, from, STRSAFE_MAX_CCH);                                                  \
    }                                                                                                                  \
    static __inline__ HRESULT StringCchCat##Form(Char *to, size_t room, const Char *from) {                            \
        size_t length = 0;                                                                                             \
        const HRESULT result = StringCchLength##Form(to, room, &length);                                               \
        return FAILED(result) ? result : StringCchCopy##Form(to + length, room - length, from);                        \
    }                                                                                                                  \
    static __inline__ HRESULT StringCbLength##Form(const Char *text, size_t bytes, size_t *length) {                   \
        const HRESULT result = StringCchLength##Form(text, bytes / sizeof *text, length);                              \
        if (length != NULL) *length *= sizeof *text;                                                                   \
        return result;                                                                                                 \
    }                                                                                                                  \
    static __inline__ HRESULT StringCbCopy##Form(Char *to, size_t bytes, const Char *from) {                           \
        return StringCchCopy##Form(to, bytes / sizeof *to, from);                                                      \
    }                                                                                                                  \
    static __inline__ HRESULT StringCbCat##Form(Char *to, size_t bytes, const Char *from) {                            \
        return StringCchCat##Form(to, bytes / sizeof *to, from);                                                       \
    }

TVWIN32_STRSAFE_FORMS(A, char)
TVWIN32_STRSAFE_FORMS(W, WCHAR)

__attribute__((format(printf, 3, 0))) static __inline__ HRESULT StringCchVPrintfA(char *to, size_t room,
                                                                                  const char *format, va_list values) {
    int length;
    if (!TVWIN32_IS_ROOM(room)) return STRSAFE_E_INVALID_PARAMETER;
    length = vsnprintf(to, room, format, values);
    if (length < 0) {
        *to = 0;
        return STRSAFE_E_INVALID_PARAMETER;
    }
    return (size_t)length < room ? S_OK : STRSAFE_E_INSUFFICIENT_BUFFER;
}

__attribute__((format(printf, 3, 4))) static __inline__ HRESULT StringCchPrintfA(char *to, size_t room,
                                                                                 const char *format, ...) {
    HRESULT result;
    va_list values;
    va_start(values, format);
    result = StringCchVPrintfA(to, room, format, values);
    va_end(values);
    return result;
}

static __inline__ HRESULT StringCchVPrintfW(WCHAR *to, size_t room, const WCHAR *format, va_list values) {
    int length;
    if (!TVWIN32_IS_ROOM(room)) return STRSAFE_E_INVALID_PARAMETER;
    length = tvFormatWide(to, room, format, values);
    if (length < 0) return STRSAFE_E_INVALID_PARAMETER;
    return (size_t)length < room ? S_OK : STRSAFE_E_INSUFFICIENT_BUFFER;
}

static __inline__ HRESULT StringCchPrintfW(WCHAR *to, size_t room, const WCHAR *format, ...) {
    HRESULT result;
    va_list values;
    va_start(values, format);
    result = StringCchVPrintfW(to, room, format, values);
    va_end(values);
    return result;
}

#define StringCbVPrintfW(to, bytes, format, values) StringCchVPrintfW((to), (bytes) / sizeof(WCHAR), (format), (values))
#define StringCbPrintfW(to, bytes, ...) StringCchPrintfW((to), (bytes) / sizeof(WCHAR), __VA_ARGS__)
#define StringCbVPrintfA StringCchVPrintfA
#define StringCbPrintfA StringCchPrintfA

#define StringCchLength TV_FORM(StringCchLength)
#define StringCchCopy TV_FORM(StringCchCopy)
#define StringCchCopyN TV_FORM(StringCchCopyN)
#define StringCchCat TV_FORM(StringCchCat)
#define StringCbLength TV_FORM(StringCbLength)
#define StringCbCopy TV_FORM(StringCbCopy)
#define StringCbCat TV_FORM(StringCbCat)
#define StringCchPrintf TV_FORM(StringCchPrintf)
#define StringCchVPrintf TV_FORM(StringCchVPrintf)
#define StringCbPrintf TV_FORM(StringCbPrintf)
#define StringCbVPrintf TV_FORM(StringCbVPrintf)

#endif
