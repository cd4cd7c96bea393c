// SPDX-License-Identifier: MIT
// last_error: each thread's last Win32 code.
#include "svcapi/last_error.h"

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

} // namespace

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }

BOOL Succeeded(DWORD code) {
    if (code != ERROR_SUCCESS) SetLastError(code);
    return code == ERROR_SUCCESS ? TRUE : FALSE;
}
