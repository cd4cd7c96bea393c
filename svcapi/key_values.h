// SPDX-License-Identifier: MIT
// key_values: values of one type in a registry key, as texts, lists and numbers.
//
// The reading functions leave their argument as it is, and succeed, where there is no such value. All return 0, 13
// ERROR_INVALID_DATA for a value of another type or size, or a code of the registry.
#pragma once

#include "tv/winreg.h"

#include <string>
#include <vector>

[[nodiscard]] DWORD ReadTextValue(HKEY key, const char *name, std::string *text);                    // REG_SZ
[[nodiscard]] DWORD ReadStringsValue(HKEY key, const char *name, std::vector<std::string> *strings); // REG_MULTI_SZ
[[nodiscard]] DWORD ReadNumberValue(HKEY key, const char *name, DWORD *number);                      // REG_DWORD
[[nodiscard]] DWORD ReadBytesValue(HKEY key, const char *name, std::string *bytes);                  // REG_BINARY

[[nodiscard]] DWORD WriteTextValue(HKEY key, const char *name, const std::string &text);
[[nodiscard]] DWORD WriteStringsValue(HKEY key, const char *name, const std::vector<std::string> &strings);
[[nodiscard]] DWORD WriteNumberValue(HKEY key, const char *name, DWORD number);
[[nodiscard]] DWORD WriteBytesValue(HKEY key, const char *name, const std::string &bytes);

// Takes a value away, if there is one.
[[nodiscard]] DWORD RemoveValue(HKEY key, const char *name);
