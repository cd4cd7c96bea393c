// SPDX-License-Identifier: MIT
// last_error: results as the thread's last error.
#include "svcapi/last_error.h"

BOOL Succeeded(DWORD code) {
    if (code != ERROR_SUCCESS) SetLastError(code);
    return code == ERROR_SUCCESS ? TRUE : FALSE;
}
