/* SPDX-License-Identifier: MIT */
/*
 * winreg_wide: the registry functions for UTF-16 text.
 *
 * The W functions of tv/winreg.h convert nothing: names are left out. Here the names of the W functions stand for
 * functions of this header, which convert to and from the registry's UTF-8 and call the A functions. What holds for
 * all:
 *   - 1113 ERROR_NO_UNICODE_TRANSLATION for a name or a text that is no UTF-16, and for what is no UTF-8 in an answer;
 *   - the data of REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ are texts: UTF-16 outside, UTF-8 in the registry. Other types
 *     are bytes and stay as they are;
 *   - 234 ERROR_MORE_DATA when room is too small; sizes of data are bytes, sizes of names characters;
 *   - security attributes are passed on, and used as little as by the A functions.
 * Every W function of tv/winreg.h has its form here.
 */
#ifndef TVWIN32_WINREG_WIDE_H
#define TVWIN32_WINREG_WIDE_H

#include "winbase.h"

#include "tv/winreg.h"

#include <stdlib.h>
#include <string.h>

/* Puts one character as UTF-8; returns its bytes. */
static __inline__ size_t tvRegPutUtf8(uint32_t character, char *to) {
    const size_t bytes = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
    size_t i;
    for (i = bytes - 1; i > 0; --i) {
        to[i] = (char)(0x80 | (character & 0x3F));
        character >>= 6;
    }
    to[0] = (char)(bytes == 1 ? character : (0xF00u >> bytes & 0xF0) | character);
    return bytes;
}

/* Converts so many characters. Room: three bytes each. Returns the bytes, or -1 for what is no UTF-16. */
static __inline__ long tvRegNarrow(const WCHAR *text, size_t length, char *to) {
    size_t bytes = 0;
    size_t i;
    for (i = 0; i < length; ++i) {
        uint32_t character = text[i];
        if (character >= 0xD800 && character <= 0xDFFF) {
            if (character >= 0xDC00 || i + 1 >= length || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return -1;
            character = 0x10000 + ((character & 0x3FF) << 10 | ((uint32_t)text[++i] & 0x3FF));
        }
        bytes += tvRegPutUtf8(character, to + bytes);
    }
    return (long)bytes;
}

/* Takes one character; returns its bytes, 0 for what is no UTF-8. */
static __inline__ size_t tvRegTakeUtf8(const char *text, size_t length, uint32_t *character) {
    const unsigned char first = (unsigned char)text[0];
    const size_t bytes = first < 0x80   ? 1
                         : first < 0xC2 ? 0
                         : first < 0xE0 ? 2
                         : first < 0xF0 ? 3
                         : first < 0xF5 ? 4
                                        : 0;
    size_t i;
    if (bytes == 0 || bytes > length) return 0;
    *character = bytes == 1 ? first : first & (0x7Fu >> bytes);
    for (i = 1; i < bytes; ++i) {
        if (((unsigned char)text[i] & 0xC0) != 0x80) return 0;
        *character = *character << 6 | ((unsigned char)text[i] & 0x3F);
    }
    if (bytes == 3 && (*character < 0x800 || (*character >= 0xD800 && *character <= 0xDFFF))) return 0;
    if (bytes == 4 && (*character < 0x10000 || *character > 0x10FFFF)) return 0;
    return bytes;
}

/* Converts so many bytes. Room: one character a byte. Returns the characters, or -1 for what is no UTF-8. */
static __inline__ long tvRegWiden(const char *text, size_t length, WCHAR *to) {
    size_t units = 0;
    while (length > 0) {
        uint32_t character = 0;
        const size_t bytes = tvRegTakeUtf8(text, length, &character);
        if (bytes == 0) return -1;
        text += bytes;
        length -= bytes;
        if (character >= 0x10000) {
            to[units++] = (WCHAR)(0xD800 | (character - 0x10000) >> 10);
            character = 0xDC00 | (character & 0x3FF);
        }
        to[units++] = (WCHAR)character;
    }
    return (long)units;
}

static __inline__ BOOL tvRegIsText(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ ? TRUE : FALSE;
}

/* A name as UTF-8; null stays null. The caller frees *narrow. */
static __inline__ LONG tvRegName(LPCWSTR name, char **narrow) {
    size_t length = 0;
    long bytes;
    *narrow = NULL;
    if (name == NULL) return ERROR_SUCCESS;
    while (name[length] != 0) {
        ++length;
    }
    *narrow = (char *)malloc(length * 3 + 1);
    if (*narrow == NULL) return ERROR_NOT_ENOUGH_MEMORY;
    bytes = tvRegNarrow(name, length, *narrow);
    if (bytes < 0) {
        free(*narrow);
        *narrow = NULL;
        return ERROR_NO_UNICODE_TRANSLATION;
    }
    (*narrow)[bytes] = 0;
    return ERROR_SUCCESS;
}

/* Hands a name out: *length is the room in characters, terminator included, and then the length without it. */
static __inline__ LONG tvRegGiveName(const char *narrow, LPWSTR name, DWORD *length) {
    const size_t bytes = strlen(narrow);
    WCHAR *const wide = (WCHAR *)malloc((bytes + 1) * sizeof *wide);
    long units;
    LONG rc = ERROR_SUCCESS;
    if (wide == NULL) return ERROR_NOT_ENOUGH_MEMORY;
    units = tvRegWiden(narrow, bytes, wide);
    if (units < 0) {
        rc = ERROR_NO_UNICODE_TRANSLATION;
    } else if ((DWORD)units >= *length) {
        rc = ERROR_MORE_DATA;
    } else {
        wide[units] = 0;
        memcpy(name, wide, ((size_t)units + 1) * sizeof *wide);
        *length = (DWORD)units;
    }
    free(wide);
    return rc;
}

static __inline__ LONG tvRegKeyByName(LONG (*byName)(HKEY, LPCSTR, PHKEY), HKEY hKey, LPCWSTR lpSubKey,
                                      PHKEY phkResult) {
    char *name;
    LONG rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = byName(hKey, name, phkResult);
    free(name);
    return rc;
}

static __inline__ LONG tvRegCallByName(LONG (*byName)(HKEY, LPCSTR), HKEY hKey, LPCWSTR lpName) {
    char *name;
    LONG rc = tvRegName(lpName, &name);
    if (rc == ERROR_SUCCESS) rc = byName(hKey, name);
    free(name);
    return rc;
}

/* The same for a key's class, of which the length alone may be wanted. */
static __inline__ LONG tvRegGiveClass(const char *narrow, LPWSTR keyClass, DWORD *length) {
    const size_t bytes = strlen(narrow);
    WCHAR *wide;
    long units;
    if (keyClass != NULL) return tvRegGiveName(narrow, keyClass, length);
    wide = (WCHAR *)malloc((bytes + 1) * sizeof *wide);
    if (wide == NULL) return ERROR_NOT_ENOUGH_MEMORY;
    units = tvRegWiden(narrow, bytes, wide);
    free(wide);
    if (units < 0) return ERROR_NO_UNICODE_TRANSLATION;
    *length = (DWORD)units;
    return ERROR_SUCCESS;
}

static __inline__ LONG tvRegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                                       PHKEY phkResult) {
    char *name;
    LONG rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = RegOpenKeyExA(hKey, name, ulOptions, samDesired, phkResult);
    free(name);
    return rc;
}

static __inline__ LONG tvRegOpenKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult) {
    return tvRegKeyByName(RegOpenKeyA, hKey, lpSubKey, phkResult);
}

static __inline__ LONG tvRegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved, LPWSTR lpClass, DWORD dwOptions,
                                         REGSAM samDesired, LPSECURITY_ATTRIBUTES lpSecurityAttributes, PHKEY phkResult,
                                         LPDWORD lpdwDisposition) {
    char *name;
    char *keyClass = NULL;
    LONG rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = tvRegName(lpClass, &keyClass);
    if (rc == ERROR_SUCCESS) {
        rc = RegCreateKeyExA(hKey, name, Reserved, keyClass, dwOptions, samDesired, lpSecurityAttributes, phkResult,
                             lpdwDisposition);
    }
    free(name);
    free(keyClass);
    return rc;
}

static __inline__ LONG tvRegCreateKeyW(HKEY hKey, LPCWSTR lpSubKey, PHKEY phkResult) {
    return tvRegKeyByName(RegCreateKeyA, hKey, lpSubKey, phkResult);
}

static __inline__ LONG tvRegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    return tvRegCallByName(RegDeleteKeyA, hKey, lpSubKey);
}

static __inline__ LONG tvRegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
    return tvRegCallByName(RegDeleteValueA, hKey, lpValueName);
}

static __inline__ LONG tvRegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved, DWORD dwType,
                                        const BYTE *lpData, DWORD cbData) {
    char *name;
    char *data = NULL;
    long bytes = 0;
    LONG rc = tvRegName(lpValueName, &name);
    if (rc == ERROR_SUCCESS && lpData != NULL && tvRegIsText(dwType)) {
        const size_t length = cbData / sizeof(WCHAR);
        WCHAR *const text = (WCHAR *)malloc((length + 1) * sizeof *text); /* the caller's need not be aligned */
        data = (char *)malloc(length * 3 + 1);
        if (text != NULL) memcpy(text, lpData, length * sizeof *text);
        bytes = text != NULL && data != NULL ? tvRegNarrow(text, length, data) : 0;
        rc = text == NULL || data == NULL ? ERROR_NOT_ENOUGH_MEMORY
             : bytes < 0                  ? ERROR_NO_UNICODE_TRANSLATION
                                          : ERROR_SUCCESS;
        free(text);
    }
    if (rc == ERROR_SUCCESS) {
        rc = data != NULL ? RegSetValueExA(hKey, name, Reserved, dwType, (const BYTE *)data, (DWORD)bytes)
                          : RegSetValueExA(hKey, name, Reserved, dwType, lpData, cbData);
    }
    free(name);
    free(data);
    return rc;
}

/* Hands data out; *bytes is the room and then the size. Text may need two bytes for each of its own. */
static __inline__ LONG tvRegGiveData(DWORD type, const char *data, DWORD size, LPBYTE to, DWORD *bytes) {
    WCHAR *wide = NULL;
    const void *from = data;
    size_t needed = size;
    LONG rc = ERROR_SUCCESS;
    if (tvRegIsText(type)) {
        long units;
        wide = (WCHAR *)malloc(((size_t)size + 1) * sizeof *wide);
        if (wide == NULL) return ERROR_NOT_ENOUGH_MEMORY;
        units = tvRegWiden(data, size, wide);
        if (units < 0) {
            free(wide);
            return ERROR_NO_UNICODE_TRANSLATION;
        }
        needed = (size_t)units * sizeof *wide;
        from = wide;
    }
    if (to != NULL && needed > *bytes) rc = ERROR_MORE_DATA;
    if (to != NULL && rc == ERROR_SUCCESS) memcpy(to, from, needed);
    *bytes = (DWORD)needed;
    free(wide);
    return rc;
}

static __inline__ LONG tvRegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                          LPBYTE lpData, LPDWORD lpcbData) {
    char *name;
    char *data = NULL;
    DWORD type = REG_NONE;
    DWORD size = 0;
    DWORD room = 0;
    LONG rc = tvRegName(lpValueName, &name);
    if (rc == ERROR_SUCCESS && lpData != NULL && lpcbData == NULL) rc = ERROR_INVALID_PARAMETER;
    if (rc == ERROR_SUCCESS) rc = RegQueryValueExA(hKey, name, lpReserved, &type, NULL, &size);
    /* It may grow before it is read; what is longer than its room is cut. */
    while (rc == ERROR_SUCCESS && (data == NULL || size > room)) {
        room = size;
        free(data);
        data = (char *)malloc((size_t)room + 1);
        rc = data == NULL ? ERROR_NOT_ENOUGH_MEMORY
                          : RegQueryValueExA(hKey, name, lpReserved, &type, (LPBYTE)data, &size);
        if (rc == ERROR_MORE_DATA && size > room) rc = ERROR_SUCCESS;
    }
    if (rc == ERROR_SUCCESS && lpType != NULL) *lpType = type;
    if (rc == ERROR_SUCCESS && lpcbData != NULL) rc = tvRegGiveData(type, data, size, lpData, lpcbData);
    free(name);
    free(data);
    return rc;
}

/* Room for the longest name that the registry has, in bytes. */
#define TVWIN32_REG_NAME_BYTES 65536

static __inline__ LONG tvRegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcName, LPDWORD lpReserved,
                                       LPWSTR lpClass, LPDWORD lpcClass, PFILETIME lpftLastWriteTime) {
    DWORD nameBytes = TVWIN32_REG_NAME_BYTES;
    DWORD classBytes = TVWIN32_REG_NAME_BYTES;
    char *const texts = (char *)malloc(2 * TVWIN32_REG_NAME_BYTES);
    LONG rc = ERROR_NOT_ENOUGH_MEMORY;
    if (lpName == NULL || lpcName == NULL) {
        free(texts);
        return ERROR_INVALID_PARAMETER;
    }
    if (texts != NULL) {
        texts[TVWIN32_REG_NAME_BYTES] = 0;
        rc = RegEnumKeyExA(hKey, dwIndex, texts, &nameBytes, lpReserved,
                           lpClass != NULL ? texts + TVWIN32_REG_NAME_BYTES : NULL,
                           lpClass != NULL ? &classBytes : NULL, lpftLastWriteTime);
    }
    if (rc == ERROR_SUCCESS) rc = tvRegGiveName(texts, lpName, lpcName);
    if (rc == ERROR_SUCCESS && lpClass != NULL && lpcClass != NULL) {
        rc = tvRegGiveName(texts + TVWIN32_REG_NAME_BYTES, lpClass, lpcClass);
    }
    free(texts);
    return rc;
}

static __inline__ LONG tvRegEnumKeyW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, DWORD cchName) {
    return tvRegEnumKeyExW(hKey, dwIndex, lpName, &cchName, NULL, NULL, NULL, NULL);
}

static __inline__ LONG tvRegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcValueName,
                                       LPDWORD lpReserved, LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData) {
    DWORD nameBytes = TVWIN32_REG_NAME_BYTES;
    char *const name = (char *)malloc(TVWIN32_REG_NAME_BYTES);
    LONG rc = ERROR_NOT_ENOUGH_MEMORY;
    if (lpValueName == NULL || lpcValueName == NULL || (lpData != NULL && lpcbData == NULL)) {
        free(name);
        return ERROR_INVALID_PARAMETER;
    }
    if (name != NULL) {
        rc = RegEnumValueA(hKey, dwIndex, name, &nameBytes, lpReserved, lpType, NULL, NULL);
    }
    if (rc == ERROR_SUCCESS) rc = tvRegGiveName(name, lpValueName, lpcValueName);
    free(name);
    /* The data by their name: the size of text is known once it is converted. */
    return rc == ERROR_SUCCESS && lpcbData != NULL
               ? tvRegQueryValueExW(hKey, lpValueName, NULL, lpType, lpData, lpcbData)
               : rc;
}

/* Longest names are bytes, at least as many as characters. */
static __inline__ LONG tvRegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcClass, LPDWORD lpReserved,
                                          LPDWORD lpcSubKeys, LPDWORD lpcMaxSubKeyLen, LPDWORD lpcMaxClassLen,
                                          LPDWORD lpcValues, LPDWORD lpcMaxValueNameLen, LPDWORD lpcMaxValueLen,
                                          LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
    DWORD classBytes = TVWIN32_REG_NAME_BYTES - 1;
    char *const keyClass = lpcClass != NULL ? (char *)calloc(1, TVWIN32_REG_NAME_BYTES) : NULL;
    LONG rc = ERROR_NOT_ENOUGH_MEMORY;
    if (lpcClass == NULL || keyClass != NULL) {
        rc = RegQueryInfoKeyA(hKey, keyClass, keyClass != NULL ? &classBytes : NULL, lpReserved, lpcSubKeys,
                              lpcMaxSubKeyLen, lpcMaxClassLen, lpcValues, lpcMaxValueNameLen, lpcMaxValueLen,
                              lpcbSecurityDescriptor, lpftLastWriteTime);
    }
    if (rc == ERROR_SUCCESS && lpcMaxValueLen != NULL) *lpcMaxValueLen *= sizeof(WCHAR); /* were it text */
    if (rc == ERROR_SUCCESS && lpcClass != NULL) rc = tvRegGiveClass(keyClass, lpClass, lpcClass);
    free(keyClass);
    return rc;
}

/* Sources for Win32 write two backslashes before a machine's name. */
static __inline__ const char *tvRegMachine(const char *name) {
    return name != NULL && name[0] == '\\' && name[1] == '\\' ? name + 2 : name;
}

static __inline__ LONG tvRegConnectRegistryA(LPCSTR lpMachineName, HKEY hKey, PHKEY phkResult) {
    return RegConnectRegistryA(tvRegMachine(lpMachineName), hKey, phkResult);
}

static __inline__ LONG tvRegConnectRegistryW(LPCWSTR lpMachineName, HKEY hKey, PHKEY phkResult) {
    char *name;
    LONG rc = tvRegName(lpMachineName, &name);
    if (rc == ERROR_SUCCESS) rc = tvRegConnectRegistryA(name, hKey, phkResult);
    free(name);
    return rc;
}

static __inline__ LONG tvRegLoadKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpFile) {
    char *name;
    char *file = NULL;
    LONG rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = tvRegName(lpFile, &file);
    if (rc == ERROR_SUCCESS) rc = RegLoadKeyA(hKey, name, file);
    free(name);
    free(file);
    return rc;
}

static __inline__ LONG tvRegUnLoadKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    return tvRegCallByName(RegUnLoadKeyA, hKey, lpSubKey);
}

static __inline__ LONG tvRegSaveKeyW(HKEY hKey, LPCWSTR lpFile, LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    char *file;
    LONG rc = tvRegName(lpFile, &file);
    if (rc == ERROR_SUCCESS) rc = RegSaveKeyA(hKey, file, lpSecurityAttributes);
    free(file);
    return rc;
}

static __inline__ LONG tvRegRestoreKeyW(HKEY hKey, LPCWSTR lpFile, DWORD dwFlags) {
    char *file;
    LONG rc = tvRegName(lpFile, &file);
    if (rc == ERROR_SUCCESS) rc = RegRestoreKeyA(hKey, file, dwFlags);
    free(file);
    return rc;
}

static __inline__ LONG tvRegReplaceKeyW(HKEY hKey, LPCWSTR lpSubKey, LPCWSTR lpNewFile, LPCWSTR lpOldFile) {
    char *name;
    char *newFile = NULL;
    char *oldFile = NULL;
    LONG rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = tvRegName(lpNewFile, &newFile);
    if (rc == ERROR_SUCCESS) rc = tvRegName(lpOldFile, &oldFile);
    if (rc == ERROR_SUCCESS) rc = RegReplaceKeyA(hKey, name, newFile, oldFile);
    free(name);
    free(newFile);
    free(oldFile);
    return rc;
}

static __inline__ LONG tvRegQueryValueW(HKEY hKey, LPCWSTR lpSubKey, LPWSTR lpValue, LONG *lpcbValue) {
    char *name;
    char *data = NULL;
    LONG size = 0;
    LONG room = 0;
    LONG rc = lpcbValue == NULL ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;
    rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) rc = RegQueryValueA(hKey, name, NULL, &size);
    while (rc == ERROR_SUCCESS && (data == NULL || size > room)) {
        room = size;
        free(data);
        data = (char *)malloc((size_t)room + 1);
        rc = data == NULL ? ERROR_NOT_ENOUGH_MEMORY : RegQueryValueA(hKey, name, data, &size);
        if (rc == ERROR_MORE_DATA && size > room) rc = ERROR_SUCCESS;
    }
    if (rc == ERROR_SUCCESS) {
        DWORD bytes = *lpcbValue > 0 ? (DWORD)*lpcbValue : 0;
        rc = tvRegGiveData(REG_SZ, data, (DWORD)size, (LPBYTE)lpValue, &bytes);
        *lpcbValue = (LONG)bytes;
    }
    free(name);
    free(data);
    return rc;
}

/* The size counts 16-bit characters' bytes; 0: up to the terminator, where a text ends in any case. */
static __inline__ LONG tvRegSetValueW(HKEY hKey, LPCWSTR lpSubKey, DWORD dwType, LPCWSTR lpData, DWORD cbData) {
    const size_t most = cbData != 0 ? cbData / sizeof *lpData : (size_t)-1;
    size_t length = 0;
    long bytes = 0;
    char *name;
    char *data = NULL;
    LONG rc = lpData == NULL || dwType != REG_SZ ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;
    while (length < most && lpData[length] != 0) {
        ++length;
    }
    rc = tvRegName(lpSubKey, &name);
    if (rc == ERROR_SUCCESS) data = (char *)malloc(length * 3 + 1);
    if (data != NULL) bytes = tvRegNarrow(lpData, length, data);
    if (rc == ERROR_SUCCESS) {
        rc = data == NULL ? ERROR_NOT_ENOUGH_MEMORY : bytes < 0 ? ERROR_NO_UNICODE_TRANSLATION : ERROR_SUCCESS;
    }
    if (rc == ERROR_SUCCESS) {
        data[bytes] = 0;
        rc = RegSetValueA(hKey, name, dwType, data, 0);
    }
    free(name);
    free(data);
    return rc;
}

/* Each value begins at a whole 16-bit character. 234 when one does not fit: *ldwTotsize is the room for all then, and
 * the entries from the first one that did not fit are left alone. */
static __inline__ LONG tvRegQueryMultipleValuesW(HKEY hKey, PVALENTW val_list, DWORD num_vals, LPWSTR lpValueBuf,
                                                 LPDWORD ldwTotsize) {
    BYTE *const buffer = (BYTE *)lpValueBuf;
    DWORD room;
    DWORD total = 0;
    DWORD i;
    LONG rc = ERROR_SUCCESS;
    BOOL fits = TRUE;
    if (val_list == NULL || ldwTotsize == NULL) return ERROR_INVALID_PARAMETER;
    room = *ldwTotsize;
    for (i = 0; i < num_vals; ++i) {
        DWORD type = REG_NONE;
        DWORD bytes;
        BYTE nothing = 0; /* no room is none, not a question for the size */
        total += total % (DWORD)sizeof(WCHAR);
        bytes = fits && buffer != NULL && total < room ? room - total : 0;
        rc = tvRegQueryValueExW(hKey, val_list[i].ve_valuename, NULL, &type, bytes != 0 ? buffer + total : &nothing,
                                &bytes);
        if (rc != ERROR_SUCCESS && rc != ERROR_MORE_DATA) return rc;
        if (rc == ERROR_MORE_DATA || buffer == NULL) fits = FALSE;
        if (fits) {
            val_list[i].ve_valuelen = bytes;
            val_list[i].ve_valueptr = (DWORD_PTR)(buffer + total);
            val_list[i].ve_type = type;
        }
        total += bytes;
    }
    *ldwTotsize = total;
    return fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

#define RegConnectRegistryA tvRegConnectRegistryA
#define RegConnectRegistryW tvRegConnectRegistryW
#define RegLoadKeyW tvRegLoadKeyW
#define RegUnLoadKeyW tvRegUnLoadKeyW
#define RegSaveKeyW tvRegSaveKeyW
#define RegRestoreKeyW tvRegRestoreKeyW
#define RegReplaceKeyW tvRegReplaceKeyW
#define RegQueryValueW tvRegQueryValueW
#define RegSetValueW tvRegSetValueW
#define RegQueryMultipleValuesW tvRegQueryMultipleValuesW
#define RegQueryInfoKeyW tvRegQueryInfoKeyW
#define RegOpenKeyExW tvRegOpenKeyExW
#define RegOpenKeyW tvRegOpenKeyW
#define RegCreateKeyExW tvRegCreateKeyExW
#define RegCreateKeyW tvRegCreateKeyW
#define RegDeleteKeyW tvRegDeleteKeyW
#define RegDeleteValueW tvRegDeleteValueW
#define RegSetValueExW tvRegSetValueExW
#define RegQueryValueExW tvRegQueryValueExW
#define RegEnumKeyExW tvRegEnumKeyExW
#define RegEnumKeyW tvRegEnumKeyW
#define RegEnumValueW tvRegEnumValueW

#endif
