// SPDX-License-Identifier: MIT
// values: what several procedures open and read in the registry. Values of any length are read in two steps: the size,
// then the data.
//
// Thread:  main thread only.
#include "servd/servd_svc_proc/values.h"

#include "servd/checked_memory.h"
#include "servd/service_keys.h"
#include "tv/winerror.h"

#include <algorithm>

void OpenServiceKeys(const char *name, HKEY *services, HKEY *service) {
    *services = *service = 0;
    (void)RegOpenKeyExA(HKEY_LOCAL_MACHINE, servicesKeyPath, 0, KEY_ALL_ACCESS, services);
    (void)RegOpenKeyExA(*services, name, 0, KEY_ALL_ACCESS, service);
}

Win32Code ReadText(HKEY key, const char *name, TextBuffer &text) {
    DWORD bytes = textBytes;
    return RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<LPBYTE>(text), &bytes);
}

Win32Code ReadNumber(HKEY key, const char *name, DWORD *number) {
    DWORD bytes = sizeof *number;
    return RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<LPBYTE>(number), &bytes);
}

Win32Code QueryValueSize(HKEY key, const char *name, DWORD *bytes) {
    *bytes = 0;
    return RegQueryValueExA(key, name, nullptr, nullptr, nullptr, bytes);
}

Win32Code ReadValue(HKEY key, const char *name, HeapText *value, DWORD *bytes, DWORD *type) {
    const DWORD room = *bytes;
    if (room > longestValueBytes) return ERROR_NOT_ENOUGH_MEMORY;
    value->reset(static_cast<char *>(CheckedCalloc(room + valueTerminatorBytes, 1)));
    const Win32Code rc = RegQueryValueExA(key, name, nullptr, type, reinterpret_cast<LPBYTE>(value->get()), bytes);
    *bytes = std::min(*bytes, room); // a value that has grown since is cut
    return rc;
}

Win32Code ReadWholeValue(HKEY key, const char *name, HeapText *value, DWORD *bytes, DWORD *type) {
    const Win32Code rc = QueryValueSize(key, name, bytes);
    return rc != ERROR_SUCCESS ? rc : ReadValue(key, name, value, bytes, type);
}
