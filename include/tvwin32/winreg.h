/* SPDX-License-Identifier: MIT */
/*
 * winreg: the registry functions, tv/winreg.h, and their names without suffix.
 *
 * HKEY is the 32-bit number that travels to the registry daemon, not a pointer. Sources that treat it as one meet this:
 *   HKEY key = NULL;      C++ warns (-Wconversion-null), C warns (-Wint-conversion, an error from GCC 14 on: compile
 *                         with -Wno-error=int-conversion, or write HKEY key = 0)
 *   if (key == NULL)      C++ warns (-Wpointer-arith or -Wnull-arithmetic), C warns of a pointer and an integer
 *   if (!key), key = 0    as anywhere; 0 is never an open key
 *   (void *)key           use (void *)(ULONG_PTR)key
 */
#ifndef TVWIN32_WINREG_H
#define TVWIN32_WINREG_H

#include "winbase.h"

#include "tv/winreg.h"
#include "winreg_wide.h"

#define VALENT TV_FORM(VALENT)
#define PVALENT TV_FORM(PVALENT)
#define RegConnectRegistry TV_FORM(RegConnectRegistry)
#define RegCreateKey TV_FORM(RegCreateKey)
#define RegCreateKeyEx TV_FORM(RegCreateKeyEx)
#define RegDeleteKey TV_FORM(RegDeleteKey)
#define RegDeleteValue TV_FORM(RegDeleteValue)
#define RegEnumKey TV_FORM(RegEnumKey)
#define RegEnumKeyEx TV_FORM(RegEnumKeyEx)
#define RegEnumValue TV_FORM(RegEnumValue)
#define RegLoadKey TV_FORM(RegLoadKey)
#define RegOpenKey TV_FORM(RegOpenKey)
#define RegOpenKeyEx TV_FORM(RegOpenKeyEx)
#define RegQueryInfoKey TV_FORM(RegQueryInfoKey)
#define RegQueryValue TV_FORM(RegQueryValue)
#define RegQueryMultipleValues TV_FORM(RegQueryMultipleValues)
#define RegQueryValueEx TV_FORM(RegQueryValueEx)
#define RegReplaceKey TV_FORM(RegReplaceKey)
#define RegRestoreKey TV_FORM(RegRestoreKey)
#define RegSaveKey TV_FORM(RegSaveKey)
#define RegSetValue TV_FORM(RegSetValue)
#define RegSetValueEx TV_FORM(RegSetValueEx)
#define RegUnLoadKey TV_FORM(RegUnLoadKey)

#endif
