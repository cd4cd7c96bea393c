// SPDX-License-Identifier: MIT
// create_process: starting a program and ending it.
#include "tvbase/processes.h"
#include "tvbase/result.h"
#include "tvbase/wide.h"
#include "tvbase/win32_command_line.h"

#include "tv/winbase.h"

#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// What a program is started with, in bytes.
struct Launch {
    std::string program; // a path, or a name that is looked for in PATH
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    bool hasEnvironment = false;
    std::string folder; // "" for the present one
    DWORD flags = 0;
};

struct SpawnSettings {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    SpawnSettings() {
        (void)posix_spawnattr_init(&attributes);
        (void)posix_spawn_file_actions_init(&actions);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;
    ~SpawnSettings() {
        (void)posix_spawnattr_destroy(&attributes);
        (void)posix_spawn_file_actions_destroy(&actions);
    }
};

DWORD CodeOfErrno(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR: return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM: return ERROR_ACCESS_DENIED;
    case ENOEXEC: return ERROR_BAD_EXE_FORMAT;
    default: return ERROR_NOT_ENOUGH_MEMORY;
    }
}

std::vector<char *> Pointers(std::vector<std::string> *texts) {
    std::vector<char *> pointers;
    for (std::string &text : *texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

DWORD Spawn(Launch *launch, pid_t *id) {
    SpawnSettings settings;
    if ((launch->flags & CREATE_NEW_PROCESS_GROUP) != 0) {
        (void)posix_spawnattr_setflags(&settings.attributes, POSIX_SPAWN_SETPGROUP);
    }
    if (!launch->folder.empty()) {
        const int error = posix_spawn_file_actions_addchdir_np(&settings.actions, launch->folder.c_str());
        if (error != 0) return CodeOfErrno(error);
    }
    const std::vector<char *> arguments = Pointers(&launch->arguments);
    const std::vector<char *> environment = Pointers(&launch->environment);
    const int error = posix_spawnp(id, launch->program.c_str(), &settings.actions, &settings.attributes,
                                   arguments.data(), launch->hasEnvironment ? environment.data() : environ);
    return error == 0 ? ERROR_SUCCESS : CodeOfErrno(error);
}

DWORD Start(Launch *launch, LPPROCESS_INFORMATION information) {
    if (launch->arguments.empty() || launch->program.empty()) return ERROR_INVALID_PARAMETER;
    if ((launch->flags & CREATE_SUSPENDED) != 0) return ERROR_INVALID_PARAMETER;
    pid_t id = 0;
    if (const DWORD rc = Spawn(launch, &id); rc != 0) return rc;
    HANDLE handles[2] = {};
    const DWORD rc = AdoptChild(id, &handles[0], &handles[1]);
    *information = {handles[0], handles[1], static_cast<DWORD>(id), static_cast<DWORD>(id)};
    return rc;
}

// The line says the arguments, and where no program is named its first word does that, too.
DWORD ReadLine(const char *program, const char *line, Launch *launch) {
    if (program == nullptr && line == nullptr) return ERROR_INVALID_PARAMETER;
    launch->arguments = line == nullptr ? std::vector<std::string>{program} : SplitWin32CommandLine(line);
    if (launch->arguments.empty()) return ERROR_INVALID_PARAMETER;
    launch->program = program == nullptr ? launch->arguments.front() : program;
    return ERROR_SUCCESS;
}

// A block of "NAME=value" strings that an empty one ends.
template <typename Unit, typename Convert>
DWORD ReadBlock(const Unit *block, Launch *launch, Convert convert) {
    launch->hasEnvironment = block != nullptr;
    while (block != nullptr && *block != 0) {
        if (const DWORD rc = convert(block, &launch->environment.emplace_back()); rc != 0) return rc;
        while (*block++ != 0) {
        }
    }
    return ERROR_SUCCESS;
}

DWORD CopyText(LPCSTR text, std::string *copy) {
    *copy = text;
    return ERROR_SUCCESS;
}

DWORD ReadEnvironment(const void *block, Launch *launch) {
    if ((launch->flags & CREATE_UNICODE_ENVIRONMENT) != 0) {
        return ReadBlock(static_cast<LPCWSTR>(block), launch, Narrow);
    }
    return ReadBlock(static_cast<LPCSTR>(block), launch, CopyText);
}

} // namespace

BOOL CreateProcessA(LPCSTR lpApplicationName, LPSTR lpCommandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                    DWORD dwCreationFlags, LPVOID lpEnvironment, LPCSTR lpCurrentDirectory,
                    LPSTARTUPINFOA lpStartupInfo, LPPROCESS_INFORMATION lpProcessInformation) {
    return Answer(Guarded([&]() -> DWORD {
        if (lpProcessInformation == nullptr) return ERROR_INVALID_PARAMETER;
        if (lpStartupInfo != nullptr && (lpStartupInfo->dwFlags & STARTF_USESTDHANDLES) != 0) {
            return ERROR_INVALID_PARAMETER;
        }
        Launch launch;
        launch.flags = dwCreationFlags;
        if (lpCurrentDirectory != nullptr) launch.folder = lpCurrentDirectory;
        if (const DWORD rc = ReadLine(lpApplicationName, lpCommandLine, &launch); rc != 0) return rc;
        if (const DWORD rc = ReadEnvironment(lpEnvironment, &launch); rc != 0) return rc;
        return Start(&launch, lpProcessInformation);
    }));
}

BOOL CreateProcessW(LPCWSTR lpApplicationName, LPWSTR lpCommandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL,
                    DWORD dwCreationFlags, LPVOID lpEnvironment, LPCWSTR lpCurrentDirectory,
                    LPSTARTUPINFOW lpStartupInfo, LPPROCESS_INFORMATION lpProcessInformation) {
    STARTUPINFOA startup = {};
    startup.dwFlags = lpStartupInfo == nullptr ? 0 : lpStartupInfo->dwFlags;
    BOOL result = FALSE;
    (void)WithNarrow(lpApplicationName, [&](const char *program) {
        (void)WithNarrow(lpCommandLine, [&](const char *line) {
            (void)WithNarrow(lpCurrentDirectory, [&](const char *folder) {
                result = CreateProcessA(program, const_cast<char *>(line), nullptr, nullptr, FALSE, dwCreationFlags,
                                        lpEnvironment, folder, &startup, lpProcessInformation);
            });
        });
    });
    return result;
}
