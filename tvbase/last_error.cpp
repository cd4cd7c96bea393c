// SPDX-License-Identifier: MIT
// last_error: each thread's last Win32 code.
//
// Nothing else stands in this file: the libraries that bring it carry it under one symbol version, so that the first of
// them in a program serves them all, and of several static libraries a linker takes one copy.
#include "tv/lasterror.h"

namespace {

thread_local DWORD lastError = 0;

} // namespace

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }
