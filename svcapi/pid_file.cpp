// SPDX-License-Identifier: MIT
// pid_file: writing and reading the process id hints.
#include "svcapi/pid_file.h"

#include "svcapi/process_user.h"
#include "util/guard.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

namespace {

constexpr int textBytes = 24;
constexpr char rootsFolder[] = "/run";
constexpr std::size_t accountBytes = 16 * 1024; // for the texts of an account

std::vector<std::string> BaseFolders() {
    std::vector<std::string> folders = {rootsFolder};
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

// Everybody may read hints, whatever the umask.
bool MakeFolder(const std::string &path) {
    if (mkdir(path.c_str(), 0755) == 0) return chmod(path.c_str(), 0755) == 0;
    return errno == EEXIST;
}

bool MakeFolders(const std::string &base) { return MakeFolder(base + "/tv") && MakeFolder(base + "/tv/services"); }

int MakeFile(const std::string &path) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file >= 0) (void)fchmod(file, 0644);
    return file;
}

// Opens a file for the hint: a new one where files can be removed and made, else the one that root has made for us.
// Never follows a link, waits for nobody and writes into no other user's file.
int OpenForHint(const std::string &path) {
    (void)unlink(path.c_str());
    int file = MakeFile(path);
    if (file >= 0) return file;
    file = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat found = {};
    if (file >= 0 && (fstat(file, &found) != 0 || !S_ISREG(found.st_mode) || found.st_uid != geteuid())) {
        (void)close(file);
        return -1;
    }
    return file;
}

// Readers find the old text or the new one: what is left of a longer old one stands behind the newline until it is cut.
bool WriteText(const std::string &path, const std::string &text) {
    int file = OpenForHint(path);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    return pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
           ftruncate(file, static_cast<off_t>(text.size())) == 0;
}

// Whether a process that a file of this owner names is believed to be the service's.
bool IsBelieved(pid_t process, uid_t owner) {
    uid_t user = 0;
    return owner == 0 || !FindUserOf(process, &user) || user == owner;
}

PidHint ReadHint(const std::string &path) {
    int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return {};
    const DescriptorGuard closed(&file);
    char text[textBytes] = {};
    struct stat found = {};
    if (fstat(file, &found) != 0 || !S_ISREG(found.st_mode) || read(file, text, sizeof text - 1) <= 0) return {};
    PidHint hint;
    hint.pid = static_cast<pid_t>(std::strtol(text, nullptr, 10));
    hint.alive = hint.pid > 0 && (kill(hint.pid, 0) == 0 || errno == EPERM) && IsBelieved(hint.pid, found.st_uid);
    hint.writtenAt = found.st_mtime;
    return hint;
}

} // namespace

int PreparePidFile(const std::string &serviceName, const std::string &account) {
    if (account.empty()) return 0;
    if (geteuid() != 0) return EPERM;
    if (!IsFileName(serviceName)) return EINVAL;
    passwd record = {};
    std::vector<char> texts(accountBytes);
    const passwd *user = nullptr;
    (void)getpwnam_r(account.c_str(), &record, texts.data(), texts.size(), const_cast<passwd **>(&user));
    if (user == nullptr) return ENOENT;
    if (user->pw_uid == 0) return 0;
    const std::string path = PathUnder(rootsFolder, serviceName);
    if (!MakeFolders(rootsFolder)) return errno;
    struct stat found = {};
    if (lstat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == user->pw_uid) return 0;
    (void)unlink(path.c_str()); // whoever has it open writes into nothing
    int file = MakeFile(path);
    if (file < 0) return errno;
    const DescriptorGuard closed(&file);
    return fchown(file, user->pw_uid, user->pw_gid) == 0 ? 0 : errno;
}

void RemovePidFile(const std::string &path) {
    if (unlink(path.c_str()) == 0) return;
    int file = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    (void)ftruncate(file, 0); // a hint only
    (void)close(file);
}

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
