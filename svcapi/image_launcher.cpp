// SPDX-License-Identifier: MIT
// image_launcher: writing, reading and checking launchers.
//
// What stands in a launcher is run as root, or as the service's user. So the folder belongs to root, nobody else may
// write in it, and all modes are set, whatever the mask of the one who creates a service. A launcher begins with two
// lines that name its service: a file without them was written by somebody else, and stays. The third line keeps the
// command line as it was given. A new launcher is written beside the old one and renamed when it is whole.
#include "svcapi/image_launcher.h"

#include "tv/winerror.h"
#include "util/command_line.h"
#include "util/file_status.h"
#include "util/guard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char launcherFolder[] = "/etc/tv/services";
constexpr const char *launcherFolderParts[] = {"/etc", "tv", "services"}; // the last two are ours
constexpr mode_t launcherMode = 0644;
constexpr mode_t folderMode = 0755;
constexpr std::size_t longestFirstLine = 4096;

std::string FileNameOf(const std::string &name) { return name + ".csh"; }

bool CanBeFileName(const std::string &name) {
    return !name.empty() && name.front() != '.' && name.find_first_of("/\n") == std::string::npos;
}

DWORD CodeOfErrno(int error) {
    switch (error) {
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOSPC:
    case EDQUOT: return ERROR_NOT_ENOUGH_MEMORY;
    default: return ERROR_ACCESS_DENIED;
    }
}

// The code of a system call that has just failed, and what it was about.
DWORD FailedWithErrno(const std::string &path, std::string *problem) {
    const int error = errno;
    *problem = path + ": " + std::strerror(error);
    return CodeOfErrno(error);
}

// A word as csh reads it back: in single quotes, with the exclamation mark kept from the history, and a quote outside.
std::string QuotedForCsh(const std::string &word) {
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else if (c == '!') {
            quoted += "\\!";
        } else {
            quoted.push_back(c);
        }
    }
    return quoted + "'";
}

// What a launcher begins with, and nothing else.
std::string LauncherMark(const std::string &name) {
    return "#!/bin/csh -f\n# starts the service " + name + "; written by tvsc\n";
}

// The third line; behind a bracket a backslash at the end does not take the next line along.
constexpr char givenBegin[] = "# command line [";
constexpr char givenEnd[] = "]";

std::string LauncherText(const std::string &name, const LaunchedProgram &program) {
    std::string text = LauncherMark(name) + givenBegin + program.given + givenEnd + "\n";
    for (const std::string &variable : program.environment) {
        const std::size_t sign = variable.find('=');
        const std::string value = variable.substr(sign + 1);
        const std::string begin = value.empty() ? "unsetenv " : "setenv ";
        text += begin + variable.substr(0, sign) + (value.empty() ? "" : " " + QuotedForCsh(value)) + "\n";
    }
    if (!program.directory.empty()) text += "cd " + QuotedForCsh(program.directory) + "\n";
    text += "exec";
    for (const std::string &word : program.words) {
        text += " " + QuotedForCsh(word);
    }
    return text + "\n";
}

// Up to so many bytes of an open file.
std::string ReadBeginning(int file, std::size_t bytes) {
    std::string text(bytes, '\0');
    std::size_t length = 0;
    for (ssize_t taken = 1; taken > 0 && length < bytes;
         length += static_cast<std::size_t>(std::max<ssize_t>(taken, 0))) {
        taken = read(file, text.data() + length, bytes - length);
    }
    text.resize(length);
    return text;
}

bool IsRegular(int file) {
    FileStatus found;
    return LookAtFile(file, &found) && S_ISREG(found.mode);
}

// Returns 0, or 5 and why launchers must not lie in a folder.
DWORD CheckFolder(int folder, const std::string &path, std::string *problem) {
    FileStatus found;
    if (!LookAtFile(folder, &found)) return FailedWithErrno(path, problem);
    const mode_t mode = found.mode & 07777;
    if (found.owner == 0 && (mode & 0022) == 0 && (mode & 0555) == 0555) return ERROR_SUCCESS;
    char modes[32];
    (void)std::snprintf(modes, sizeof modes, "mode %04o", static_cast<unsigned>(mode));
    *problem = path + ": owned by user " + std::to_string(found.owner) + ", " + modes +
               ": services run what lies there; it must belong to root and have the mode 0755";
    return ERROR_ACCESS_DENIED;
}

// Opens the folder of the launchers, checked; one part of its path after the other, so that no link leads elsewhere.
//   make    make what is missing
//   folder  the caller closes it
// Returns 0, 2 when it is missing, 5, or 8; with a text.
DWORD OpenFolder(bool make, int *folder, std::string *problem) {
    std::string path = launcherFolderParts[0];
    *folder = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (const char *part : {launcherFolderParts[1], launcherFolderParts[2]}) {
        const int above = *folder;
        path += std::string("/") + part;
        const bool isMade = make && mkdirat(above, part, 0700) == 0;
        const bool mayBeThere = !make || isMade || errno == EEXIST; // else why it cannot be made is the reason
        *folder = mayBeThere ? openat(above, part, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
        DWORD rc = *folder < 0 ? FailedWithErrno(path, problem) : ERROR_SUCCESS;
        (void)close(above);
        if (rc == ERROR_SUCCESS && isMade && fchmod(*folder, folderMode) != 0) rc = FailedWithErrno(path, problem);
        if (rc == ERROR_SUCCESS) rc = CheckFolder(*folder, path, problem);
        if (rc == ERROR_SUCCESS) continue;
        if (*folder >= 0) (void)close(*folder);
        return rc;
    }
    return ERROR_SUCCESS;
}

// Whether a launcher of this service may be written or removed in the folder. Returns 0 when tvsc wrote the one that is
// there, 2 when there is none, 183 and a text for a file of somebody else.
DWORD CheckLauncher(int folder, const std::string &name, std::string *problem) {
    int file = openat(folder, FileNameOf(name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0 && errno == ENOENT) return ERROR_FILE_NOT_FOUND;
    const DescriptorGuard closed(&file);
    const std::string mark = LauncherMark(name);
    if (file >= 0 && IsRegular(file) && ReadBeginning(file, mark.size()) == mark) return ERROR_SUCCESS;
    *problem = LauncherPath(name) + ": there already, and not written by tvsc for this service";
    return ERROR_ALREADY_EXISTS;
}

// Writes all of a text to an open file, its mode set, and on the disk.
bool WriteWhole(int file, const std::string &text) {
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t bytes = write(file, text.data() + written, text.size() - written);
        if (bytes < 0 && errno != EINTR) return false;
        written += static_cast<std::size_t>(std::max<ssize_t>(bytes, 0));
    }
    return fchmod(file, launcherMode) == 0 && fsync(file) == 0;
}

// Puts a file with this text in the place of another one, or of none.
DWORD ReplaceFile(int folder, const std::string &name, const std::string &text, std::string *problem) {
    const std::string newName = ".new-" + std::to_string(getpid());
    (void)unlinkat(folder, newName.c_str(), 0); // of a dead process of the same id
    int file = openat(folder, newName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file < 0) return FailedWithErrno(LauncherPath(name), problem);
    const DescriptorGuard closed(&file);
    if (WriteWhole(file, text) && renameat(folder, newName.c_str(), folder, FileNameOf(name).c_str()) == 0) {
        (void)fsync(folder); // the launcher is there; a power failure now may take it
        return ERROR_SUCCESS;
    }
    const DWORD rc = FailedWithErrno(LauncherPath(name), problem);
    (void)unlinkat(folder, newName.c_str(), 0);
    return rc;
}

} // namespace

std::string WhyNoProgram(const std::string &path) {
    FileStatus found;
    if (path.empty() || path.front() != '/') return "not an absolute path";
    if (!LookAtPath(path.c_str(), &found)) return std::strerror(errno);
    return S_ISREG(found.mode) && access(path.c_str(), X_OK) == 0 ? "" : "not an executable file";
}

std::string LauncherPath(const std::string &name) { return std::string(launcherFolder) + "/" + FileNameOf(name); }

std::optional<LaunchedProgram> AsProgram(const std::string &commandLine) {
    auto words = SplitIntoWords(commandLine);
    if (!words || words->empty()) return std::nullopt;
    return LaunchedProgram{commandLine, std::move(*words)};
}

std::optional<LaunchedProgram> ProgramBehind(const std::string &imagePath) {
    FileStatus found;
    if (LookAtPath(imagePath.c_str(), &found)) { // a path with blanks in it needs no quotes
        const bool isProgram = WhyNoProgram(imagePath).empty() && !WhyNoLauncher(imagePath).empty();
        return isProgram ? std::optional(LaunchedProgram{imagePath, {imagePath}}) : std::nullopt;
    }
    std::optional<LaunchedProgram> program = AsProgram(imagePath);
    if (!program || WhyNoProgram(program->words.front()).empty()) return program;
    // Sources for Win32 put folder and program together with a backslash.
    std::replace(program->words.front().begin(), program->words.front().end(), '\\', '/');
    if (!WhyNoProgram(program->words.front()).empty()) program.reset();
    return program;
}

// What csh takes for the name of a variable.
static bool IsVariable(const std::string &setting) {
    const std::string name = setting.substr(0, setting.find('='));
    const bool hasBegin = !name.empty() && (name.front() < '0' || name.front() > '9');
    return hasBegin && name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_") ==
                           std::string::npos;
}

DWORD PlanLauncher(const std::string &name, const LaunchedProgram &program, std::string *problem) {
    const std::string why = WhyNoProgram(program.words.front());
    *problem = program.words.front() + ": " + why;
    if (!why.empty()) return ERROR_PATH_NOT_FOUND;
    *problem = "a launcher cannot hold the end of a line";
    const auto hasEndOfLine = [](const std::string &text) { return text.find('\n') != std::string::npos; };
    if (hasEndOfLine(program.given) || hasEndOfLine(program.directory) ||
        std::any_of(program.environment.begin(), program.environment.end(), hasEndOfLine)) {
        return ERROR_INVALID_PARAMETER;
    }
    *problem = "csh takes letters, digits and underscores for the name of a variable";
    if (!std::all_of(program.environment.begin(), program.environment.end(), IsVariable))
        return ERROR_INVALID_PARAMETER;
    *problem = "the name cannot be a file name";
    if (!CanBeFileName(name)) return ERROR_INVALID_NAME;
    const DWORD rc = FindLauncher(name, problem);
    return rc == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : rc;
}

DWORD FindLauncher(const std::string &name, std::string *problem) {
    if (!CanBeFileName(name)) return ERROR_FILE_NOT_FOUND;
    int folder = -1;
    const DWORD rc = OpenFolder(false, &folder, problem);
    if (rc != ERROR_SUCCESS) return rc;
    const DescriptorGuard closed(&folder);
    return CheckLauncher(folder, name, problem);
}

DWORD WriteLauncher(const std::string &name, const LaunchedProgram &program, std::string *problem) {
    int folder = -1;
    DWORD rc = OpenFolder(true, &folder, problem);
    if (rc != ERROR_SUCCESS) return rc;
    const DescriptorGuard closed(&folder);
    rc = CheckLauncher(folder, name, problem);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return rc;
    return ReplaceFile(folder, name, LauncherText(name, program), problem);
}

DWORD RemoveLauncher(const std::string &name, std::string *problem) {
    int folder = -1;
    DWORD rc = OpenFolder(false, &folder, problem);
    if (rc != ERROR_SUCCESS) return rc;
    const DescriptorGuard closed(&folder);
    rc = CheckLauncher(folder, name, problem);
    if (rc == ERROR_SUCCESS && unlinkat(folder, FileNameOf(name).c_str(), 0) != 0) {
        rc = FailedWithErrno(LauncherPath(name), problem);
    }
    return rc;
}

std::optional<std::string> GivenCommandLine(const std::string &name) {
    std::string problem;
    int folder = -1;
    if (!CanBeFileName(name) || OpenFolder(false, &folder, &problem) != ERROR_SUCCESS) return std::nullopt;
    const DescriptorGuard folderClosed(&folder);
    int file = openat(folder, FileNameOf(name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return std::nullopt;
    const DescriptorGuard closed(&file);
    const std::string before = LauncherMark(name) + givenBegin;
    const std::string text = IsRegular(file) ? ReadBeginning(file, before.size() + longestFirstLine) : "";
    const std::size_t end = text.find(std::string(givenEnd) + "\n", before.size());
    if (!text.starts_with(before) || end == std::string::npos) return std::nullopt;
    return text.substr(before.size(), end - before.size());
}

std::string WhyNoLauncher(const std::string &path) {
    if (path.empty() || path.front() != '/') return "not an absolute path";
    int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); // a pipe would be waited for
    if (file < 0) return "cannot be read";
    const DescriptorGuard closed(&file);
    if (!IsRegular(file)) return "not a file";
    std::string line = ReadBeginning(file, longestFirstLine);
    if (line.empty()) return "cannot be read";
    line.resize(std::min(line.find('\n'), line.size()));
    if (line.starts_with("\x7f"
                         "ELF")) {
        return "a program; the daemon runs csh scripts (use --exec or --program)";
    }
    if (line.starts_with("#!") && line.find("csh") == std::string::npos) return "a script, but not for csh";
    return "";
}
