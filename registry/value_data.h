// SPDX-License-Identifier: MIT
// value_data: a value of any length as a std::string, for the programs around the daemon; the daemon itself, which
// builds without exceptions, reads its own way.
#pragma once

#include "tv/winerror.h"
#include "tv/winreg.h"

#include <string>

// Reads a value.
//   type  its registry type
//   data  its bytes, terminators included as they are stored
// Returns the registry's code; 234 when the value was longer at each of a few readings than it had said to be before.
inline LONG ReadValueData(HKEY key, const char *name, DWORD *type, std::string *data) {
    constexpr int readings = 4;
    DWORD bytes = 0;
    LONG rc = RegQueryValueExA(key, name, nullptr, type, nullptr, &bytes);
    if (rc != ERROR_SUCCESS) return rc;
    rc = ERROR_MORE_DATA;
    for (int reading = 0; rc == ERROR_MORE_DATA && reading < readings; ++reading) {
        data->assign(bytes, '\0');
        rc = RegQueryValueExA(key, name, nullptr, type, reinterpret_cast<LPBYTE>(data->data()), &bytes);
    }
    if (rc == ERROR_SUCCESS && bytes < data->size()) data->resize(bytes);
    return rc;
}
