// SPDX-License-Identifier: MIT
// surroundings: the environment and the present folder.
#include "tvbase/wide.h"

#include "tv/winbase.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

// A text with its terminator, when all of it fits; else the room that it needs.
template <typename Unit, typename Text>
DWORD Give(const Text &text, Unit *buffer, DWORD room) {
    if (buffer == nullptr || text.size() >= room) return static_cast<DWORD>(text.size() + 1);
    (void)CopyCut(text, buffer, room);
    return static_cast<DWORD>(text.size());
}

// Makes a text and gives it in either kind of characters; 0 when there is none.
template <typename Make>
DWORD GiveMade(LPSTR buffer, DWORD room, Make make) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        std::string text;
        if (const DWORD rc = make(&text); rc != 0) return rc;
        length = Give(text, buffer, room);
        return ERROR_SUCCESS;
    }));
    return length;
}

template <typename Make>
DWORD GiveMade(LPWSTR buffer, DWORD room, Make make) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        std::string text;
        std::u16string wide;
        if (const DWORD rc = make(&text); rc != 0) return rc;
        if (const DWORD rc = Widen(text, &wide); rc != 0) return rc;
        length = Give(wide, buffer, room);
        return ERROR_SUCCESS;
    }));
    return length;
}

DWORD ReadVariable(const char *name, std::string *value) {
    if (name == nullptr) return ERROR_INVALID_PARAMETER;
    const char *found = getenv(name);
    if (found == nullptr) return ERROR_ENVVAR_NOT_FOUND;
    *value = found;
    if (value->empty()) SetLastError(ERROR_SUCCESS);
    return ERROR_SUCCESS;
}

DWORD SetVariable(const char *name, const char *value) {
    if (name == nullptr || *name == 0 || strchr(name, '=') != nullptr) return ERROR_INVALID_PARAMETER;
    const int result = value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    return result == 0 ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
}

DWORD ReadFolder(std::string *path) {
    std::error_code error;
    *path = std::filesystem::current_path(error).string();
    return error ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

DWORD SetFolder(const char *path) {
    if (path == nullptr) return ERROR_INVALID_PARAMETER;
    if (chdir(path) == 0) return ERROR_SUCCESS;
    return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
}

DWORD MakeFullPath(const char *name, std::string *path) {
    if (name == nullptr) return ERROR_INVALID_PARAMETER;
    if (*name == 0) return ERROR_INVALID_NAME;
    std::error_code error;
    *path = std::filesystem::absolute(name, error).lexically_normal().string();
    return error ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

// Behind the last slash of a text that fitted.
template <typename Unit>
void FindFilePart(Unit *path, DWORD length, DWORD room, Unit **part) {
    if (part == nullptr) return;
    *part = nullptr;
    if (length == 0 || length >= room) return;
    Unit *end = path + length;
    while (end != path && end[-1] != '/') {
        --end;
    }
    *part = *end == 0 ? nullptr : end;
}

} // namespace

DWORD GetEnvironmentVariableA(LPCSTR lpName, LPSTR lpBuffer, DWORD nSize) {
    return GiveMade(lpBuffer, nSize, [&](std::string *value) { return ReadVariable(lpName, value); });
}

DWORD GetEnvironmentVariableW(LPCWSTR lpName, LPWSTR lpBuffer, DWORD nSize) {
    DWORD length = 0;
    (void)WithNarrow(lpName, [&](const char *name) {
        length = GiveMade(lpBuffer, nSize, [&](std::string *value) { return ReadVariable(name, value); });
    });
    return length;
}

BOOL SetEnvironmentVariableA(LPCSTR lpName, LPCSTR lpValue) { return Answer(SetVariable(lpName, lpValue)); }

BOOL SetEnvironmentVariableW(LPCWSTR lpName, LPCWSTR lpValue) {
    BOOL result = FALSE;
    (void)WithNarrow(lpName, [&](const char *name) {
        (void)WithNarrow(lpValue, [&](const char *value) { result = SetEnvironmentVariableA(name, value); });
    });
    return result;
}

DWORD GetCurrentDirectoryA(DWORD nBufferLength, LPSTR lpBuffer) {
    return GiveMade(lpBuffer, nBufferLength, ReadFolder);
}

DWORD GetCurrentDirectoryW(DWORD nBufferLength, LPWSTR lpBuffer) {
    return GiveMade(lpBuffer, nBufferLength, ReadFolder);
}

BOOL SetCurrentDirectoryA(LPCSTR lpPathName) { return Answer(SetFolder(lpPathName)); }

BOOL SetCurrentDirectoryW(LPCWSTR lpPathName) {
    BOOL result = FALSE;
    (void)WithNarrow(lpPathName, [&](const char *path) { result = SetCurrentDirectoryA(path); });
    return result;
}

DWORD GetFullPathNameA(LPCSTR lpFileName, DWORD nBufferLength, LPSTR lpBuffer, LPSTR *lpFilePart) {
    const auto make = [&](std::string *path) { return MakeFullPath(lpFileName, path); };
    const DWORD length = GiveMade(lpBuffer, nBufferLength, make);
    FindFilePart(lpBuffer, length, nBufferLength, lpFilePart);
    return length;
}

DWORD GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength, LPWSTR lpBuffer, LPWSTR *lpFilePart) {
    DWORD length = 0;
    (void)WithNarrow(lpFileName, [&](const char *name) {
        const auto make = [&](std::string *path) { return MakeFullPath(name, path); };
        length = GiveMade(lpBuffer, nBufferLength, make);
        FindFilePart(lpBuffer, length, nBufferLength, lpFilePart);
    });
    return length;
}
