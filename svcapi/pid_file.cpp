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

pid_t ReadPid(const std::string &path) {
    int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return 0;
    const DescriptorGuard closed(&file);
    char text[textBytes] = {};
    if (read(file, text, sizeof text - 1) <= 0) return 0;
    return static_cast<pid_t>(std::strtol(text, nullptr, 10));
}

} // namespace

std::string WritePidFile(const std::string &serviceName) {
    if (!IsFileName(serviceName)) return "";
    for (const std::string &base : BaseFolders()) {
        const std::string path = PathUnder(base, serviceName);
        if (MakeFolders(base) && WriteText(path, std::to_string(getpid()) + "\n")) return path;
    }
    return "";
}

pid_t ReadPidFile(const std::string &serviceName) {
    if (!IsFileName(serviceName)) return 0;
    for (const std::string &base : BaseFolders()) {
        const pid_t pid = ReadPid(PathUnder(base, serviceName));
        if (pid > 0 && (kill(pid, 0) == 0 || errno == EPERM)) return pid;
    }
    return 0;
}
