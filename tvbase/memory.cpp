// SPDX-License-Identifier: MIT
// memory: malloc under its Win32 names.
#include "tvbase/result.h"

#include "tv/winbase.h"

#include <algorithm>
#include <cstdlib>

HANDLE LocalAlloc(unsigned uFlags, size_t uBytes) {
    if ((uFlags & ~unsigned{LMEM_ZEROINIT}) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const size_t bytes = std::max(uBytes, size_t{1}); // no bytes are memory, too
    void *memory = (uFlags & LMEM_ZEROINIT) != 0 ? calloc(1, bytes) : malloc(bytes);
    if (memory == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

HANDLE LocalFree(HANDLE hMem) {
    free(hMem);
    return nullptr;
}
