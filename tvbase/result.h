// SPDX-License-Identifier: MIT
// result: how the functions of the library turn a result code into their answer.
#pragma once

#include "tv/lasterror.h"
#include "tv/winerror.h"

#include <new>
#include <system_error>

// TRUE for 0; else FALSE, and the code becomes the thread's last error.
[[nodiscard]] inline BOOL Answer(DWORD code) {
    if (code != ERROR_SUCCESS) SetLastError(code);
    return code == ERROR_SUCCESS ? TRUE : FALSE;
}

// Runs an operation that answers a code; 8 when memory, or a thread, is not to be had. C programs take no exceptions.
template <typename Operation>
[[nodiscard]] DWORD Guarded(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::system_error &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}
