// SPDX-License-Identifier: MIT
// values: keys and values of the service configuration, as the daemon reads them.
#pragma once

#include "registry/key.h"
#include "servd/limits.h"
#include "servd/win32_code.h"

// Opens the services key and the key of a service. What does not open is 0 and cannot be read later. The caller closes
// both.
void OpenServiceKeys(const char *name, HKEY *services, HKEY *service);

// Takes a name or a text, and the terminator that is always added.
using TextBuffer = char[textBytes + 1];
// Reads a text into a buffer that was zeroed once. Returns the registry's code; a call that fails leaves the buffer.
[[nodiscard]] Win32Code ReadText(HKEY key, const char *name, TextBuffer &text);
// Reads a number of at most 4 bytes, whatever its registry type. Returns the registry's code.
[[nodiscard]] Win32Code ReadNumber(HKEY key, const char *name, DWORD *number);

// Zero bytes that stand behind every value read here: each string ends, and so does each multi-string.
inline constexpr DWORD valueTerminatorBytes = 2;

// Asks for the length of a value, 0 when the call fails. Returns the registry's code; 2 when there is no such value.
[[nodiscard]] Win32Code QueryValueSize(HKEY key, const char *name, DWORD *bytes);
// Reads a value of at most *bytes bytes.
//   value  the data, followed by the terminating bytes; set also when the registry refuses
//   bytes  in: room for the data; out: how much of it came
//   type   its registry type; may be null
// Returns the registry's code; 8 when the room asked for is beyond reason (longestValueBytes).
[[nodiscard]] Win32Code ReadValue(HKEY key, const char *name, HeapText *value, DWORD *bytes, DWORD *type = nullptr);
// Both in turn.
[[nodiscard]] Win32Code ReadWholeValue(HKEY key, const char *name, HeapText *value, DWORD *bytes,
                                       DWORD *type = nullptr);
