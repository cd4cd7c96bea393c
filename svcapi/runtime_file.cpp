// SPDX-License-Identifier: MIT
// runtime_file: making, writing and reading them.
#include "svcapi/runtime_file.h"

#include "svcapi/process_user.h"
#include "util/file_status.h"
#include "util/guard.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr char rootsFolder[] = "/run";
constexpr std::size_t accountBytes = 16 * 1024; // for the texts of an account

std::vector<std::string> BaseFolders() {
    std::vector<std::string> folders = {rootsFolder};
    const char *runtimeFolder = std::getenv("XDG_RUNTIME_DIR");
    if (runtimeFolder != nullptr && *runtimeFolder == '/') folders.emplace_back(runtimeFolder);
    return folders;
}

std::string PathUnder(const std::string &base, const std::string &name, const char *suffix) {
    return base + "/tv/services/" + name + suffix;
}

// Everybody may read them, whatever the umask.
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

bool WriteTo(int file, const std::string &text) {
    return pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
           ftruncate(file, static_cast<off_t>(text.size())) == 0;
}

// Puts a new file in the place of the old one, where files can be removed and made.
bool ReplaceFile(const std::string &path, const std::string &text) {
    const std::string newPath = path + ".new"; // no service's: every file has one of our suffixes at its end
    (void)unlink(newPath.c_str());
    int file = MakeFile(newPath);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    if (WriteTo(file, text) && std::rename(newPath.c_str(), path.c_str()) == 0) return true;
    (void)unlink(newPath.c_str());
    return false;
}

// Writes into the file that root has made for us. Never follows a link, waits for nobody and writes into no other
// user's file.
bool OverwriteFile(const std::string &path, const std::string &text) {
    int file = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    FileStatus found;
    const bool isOurs = LookAtFile(file, &found) && S_ISREG(found.mode) && found.owner == geteuid();
    return isOurs && WriteTo(file, text);
}

RuntimeFile ReadOne(const std::string &path, std::size_t mostBytes) {
    int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return {};
    const DescriptorGuard closed(&file);
    FileStatus found;
    if (!LookAtFile(file, &found) || !S_ISREG(found.mode)) return {};
    RuntimeFile read = {std::string(mostBytes, '\0'), found.owner, found.writtenAt};
    const ssize_t bytes = pread(file, read.text.data(), mostBytes, 0);
    read.text.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    return read;
}

// The file stays, and is empty, where it is not ours to remove.
void RemoveRuntimeFile(const std::string &path) {
    if (unlink(path.c_str()) == 0) return;
    int file = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    [[maybe_unused]] const int cut = ftruncate(file, 0); // a hint only
    (void)close(file);
}

} // namespace

bool IsFileName(const std::string &name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos;
}

int FindAccount(const std::string &account, uid_t *user, gid_t *group) {
    *user = 0;
    *group = 0;
    if (geteuid() != 0) return EPERM;
    if (account.empty()) return 0;
    passwd record = {};
    std::vector<char> texts(accountBytes);
    const passwd *found = nullptr;
    (void)getpwnam_r(account.c_str(), &record, texts.data(), texts.size(), const_cast<passwd **>(&found));
    if (found == nullptr) return ENOENT;
    *user = found->pw_uid;
    *group = found->pw_gid;
    return 0;
}

int PrepareRuntimeFile(const std::string &serviceName, const char *suffix, const std::string &account) {
    if (account.empty()) return 0;
    uid_t user = 0;
    gid_t group = 0;
    if (geteuid() == 0 && !IsFileName(serviceName)) return EINVAL;
    const int error = FindAccount(account, &user, &group);
    if (error != 0 || user == 0) return error;
    const std::string path = PathUnder(rootsFolder, serviceName, suffix);
    if (!MakeFolders(rootsFolder)) return errno;
    FileStatus found;
    if (LookAtLink(path.c_str(), &found) && S_ISREG(found.mode) && found.owner == user) return 0;
    (void)unlink(path.c_str()); // whoever has it open writes into nothing
    int file = MakeFile(path);
    if (file < 0) return errno;
    const DescriptorGuard closed(&file);
    return fchown(file, user, group) == 0 ? 0 : errno;
}

std::string WriteRuntimeFile(const std::string &serviceName, const char *suffix, const std::string &text) {
    if (!IsFileName(serviceName)) return "";
    for (const std::string &base : BaseFolders()) {
        std::string path = PathUnder(base, serviceName, suffix);
        if (MakeFolders(base) && (ReplaceFile(path, text) || OverwriteFile(path, text))) return path;
    }
    return "";
}

void RemoveRuntimeFiles(const std::string &serviceName, const char *suffix, const std::string &beginning) {
    if (!IsFileName(serviceName)) return;
    for (const std::string &base : BaseFolders()) {
        const std::string path = PathUnder(base, serviceName, suffix);
        if (ReadOne(path, beginning.size()).text == beginning) RemoveRuntimeFile(path);
    }
}

std::vector<RuntimeFile> ReadRuntimeFiles(const std::string &serviceName, const char *suffix, std::size_t mostBytes) {
    std::vector<RuntimeFile> files;
    if (!IsFileName(serviceName)) return files;
    for (const std::string &base : BaseFolders()) {
        RuntimeFile file = ReadOne(PathUnder(base, serviceName, suffix), mostBytes);
        if (!file.text.empty()) files.push_back(std::move(file));
    }
    return files;
}

bool IsBelieved(pid_t process, uid_t owner) {
    uid_t user = 0;
    return owner == 0 || !FindUserOf(process, &user) || user == owner;
}
