// SPDX-License-Identifier: MIT
// pid_file: writing and reading the process id hints.
#include "svcapi/pid_file.h"

#include "util/guard.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

namespace {

constexpr int textBytes = 24;

std::vector<std::string> BaseFolders() {
    std::vector<std::string> folders = {"/run"};
    const char *runtimeFolder = std::getenv("XDG_RUNTIME_DIR");
    if (runtimeFolder != nullptr && *runtimeFolder == '/') folders.emplace_back(runtimeFolder);
    return folders;
}

// A name that would leave the folder, or hide in it, has no file.
bool IsFileName(const std::string &name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos;
}

std::string PathUnder(const std::string &base, const std::string &name) {
    return base + "/tv/services/" + name + ".pid";
}

bool MakeFolders(const std::string &base) {
    (void)mkdir((base + "/tv").c_str(), 0755); // it may be there already
    return mkdir((base + "/tv/services").c_str(), 0755) == 0 || errno == EEXIST;
}

bool WriteText(const std::string &path, const std::string &text) {
    (void)unlink(path.c_str()); // never write through a link, or into another user's file
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

PidHint ReadHint(const std::string &path) {
    int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    const DescriptorGuard closed(&file);
    char text[textBytes] = {};
    struct stat found = {};
    if (fstat(file, &found) != 0 || read(file, text, sizeof text - 1) <= 0) return {};
    PidHint hint;
    hint.pid = static_cast<pid_t>(std::strtol(text, nullptr, 10));
    hint.alive = hint.pid > 0 && (kill(hint.pid, 0) == 0 || errno == EPERM);
    hint.writtenAt = found.st_mtime;
    return hint;
}

} // namespace

std::string WritePidFile(const std::string &serviceName) {
    if (!IsFileName(serviceName)) return "";
    for (const std::string &base : BaseFolders()) {
        std::string path = PathUnder(base, serviceName);
        if (MakeFolders(base) && WriteText(path, std::to_string(getpid()) + "\n")) return path;
    }
    return "";
}

PidHint ReadPidHint(const std::string &serviceName) {
    PidHint hint;
    if (!IsFileName(serviceName)) return hint;
    for (const std::string &base : BaseFolders()) {
        const PidHint found = ReadHint(PathUnder(base, serviceName));
        if (found.alive) return found;
        if (found.pid > 0) hint = found;
    }
    return hint;
}

pid_t ReadPidFile(const std::string &serviceName) {
    const PidHint hint = ReadPidHint(serviceName);
    return hint.alive ? hint.pid : 0;
}
