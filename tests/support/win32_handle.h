// SPDX-License-Identifier: MIT
// What tests of the Win32 base functions share.
#pragma once

#include "tv/winbase.h"

#include <gtest/gtest.h>

// A call that returns TRUE or a truth: it must fail, with this code.
#define EXPECT_CODE(call, code)                                                                                        \
    do {                                                                                                               \
        SetLastError(0);                                                                                               \
        EXPECT_FALSE(call);                                                                                            \
        EXPECT_EQ(GetLastError(), DWORD{code});                                                                        \
    } while (false)

constexpr DWORD synchronizeForTests = 0x00100000;

// Closes a handle at the end of a test.
struct Handle {
    HANDLE handle;
    BOOL (*close)(HANDLE);
    explicit Handle(HANDLE opened, BOOL (*with)(HANDLE) = CloseHandle) : handle(opened), close(with) {
        EXPECT_NE(handle, nullptr) << GetLastError();
    }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    ~Handle() { EXPECT_TRUE(close(handle)); }
};

// A literal of 16-bit characters as the API takes it.
inline LPCWSTR Wide(const char16_t *text) { return reinterpret_cast<LPCWSTR>(text); }
