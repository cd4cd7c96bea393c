// SPDX-License-Identifier: MIT
// program: what the running program is, and how it was called.
#include "tvbase/wide.h"
#include "tvbase/win32_command_line.h"

#include "tv/winbase.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <vector>

namespace {

constexpr char deletedMark[] = " (deleted)"; // the kernel's, behind the path of a file that was replaced

// An address that nothing else has.
HANDLE ProgramHandle() {
    static char program = 0;
    return &program;
}

bool EndsWith(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

DWORD ReadProgramPath(HANDLE module, std::string *path) {
    if (module != nullptr && module != ProgramHandle()) return ERROR_MOD_NOT_FOUND;
    std::vector<char> buffer(PATH_MAX + sizeof deletedMark);
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) return ERROR_FILE_NOT_FOUND;
    path->assign(buffer.data(), static_cast<std::size_t>(length));
    if (EndsWith(*path, deletedMark)) path->resize(path->size() - (sizeof deletedMark - 1));
    return ERROR_SUCCESS;
}

// What both forms of GetModuleFileName return for a text in their own characters.
template <typename Unit, typename Text>
DWORD GivePath(const Text &path, Unit *buffer, DWORD room) {
    if (CopyCut(path, buffer, room)) return static_cast<DWORD>(path.size());
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return room;
}

std::string ReadWholeFile(const char *path) {
    std::string text;
    FILE *file = fopen(path, "re");
    if (file == nullptr) return text;
    char part[4096];
    for (std::size_t got = 0; (got = fread(part, 1, sizeof part, file)) > 0;) {
        text.append(part, got);
    }
    (void)fclose(file);
    return text;
}

std::string MakeCommandLine() {
    const std::string arguments = ReadWholeFile("/proc/self/cmdline"); // each with a zero behind it
    std::string line;
    for (std::size_t at = 0; at < arguments.size();) {
        const std::string argument = arguments.c_str() + at;
        if (at != 0) line += ' ';
        AppendQuoted(argument, &line);
        at += argument.size() + 1;
    }
    return line;
}

std::string &CommandLine() {
    static std::string line = MakeCommandLine();
    return line;
}

} // namespace

DWORD GetModuleFileNameA(HANDLE hModule, LPSTR lpFilename, DWORD nSize) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpFilename == nullptr || nSize == 0) return ERROR_INVALID_PARAMETER;
        std::string path;
        if (const DWORD rc = ReadProgramPath(hModule, &path); rc != 0) return rc;
        length = GivePath(path, lpFilename, nSize);
        return ERROR_SUCCESS;
    }));
    return length;
}

DWORD GetModuleFileNameW(HANDLE hModule, LPWSTR lpFilename, DWORD nSize) {
    DWORD length = 0;
    (void)Answer(Guarded([&]() -> DWORD {
        if (lpFilename == nullptr || nSize == 0) return ERROR_INVALID_PARAMETER;
        std::string path;
        std::u16string wide;
        if (const DWORD rc = ReadProgramPath(hModule, &path); rc != 0) return rc;
        if (const DWORD rc = Widen(path, &wide); rc != 0) return rc;
        length = GivePath(wide, lpFilename, nSize);
        return ERROR_SUCCESS;
    }));
    return length;
}

HANDLE GetModuleHandleA(LPCSTR lpModuleName) {
    if (lpModuleName == nullptr) return ProgramHandle();
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

HANDLE GetModuleHandleW(LPCWSTR lpModuleName) { return GetModuleHandleA(lpModuleName == nullptr ? nullptr : ""); }

LPSTR GetCommandLineA() {
    LPSTR line = nullptr;
    (void)Answer(Guarded([&]() -> DWORD {
        line = CommandLine().data();
        return ERROR_SUCCESS;
    }));
    return line;
}

LPWSTR GetCommandLineW() {
    LPWSTR line = nullptr;
    (void)Answer(Guarded([&]() -> DWORD {
        static std::u16string wide;
        static const DWORD converted = Widen(CommandLine(), &wide);
        if (converted == ERROR_SUCCESS) line = reinterpret_cast<LPWSTR>(wide.data());
        return converted;
    }));
    return line;
}

void OutputDebugStringA(LPCSTR lpOutputString) {
    if (lpOutputString != nullptr) (void)fputs(lpOutputString, stderr);
}

void OutputDebugStringW(LPCWSTR lpOutputString) { (void)WithNarrow(lpOutputString, OutputDebugStringA); }
