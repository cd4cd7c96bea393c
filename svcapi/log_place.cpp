// SPDX-License-Identifier: MIT
// log_place: making and finding the folders.
#include "svcapi/log_place.h"

#include "svcapi/runtime_file.h"
#include "util/file_status.h"
#include "util/guard.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr char rootsFolder[] = "/var/log/tv";

std::string FolderUnder(const std::string &base, const std::string &name) { return base + "/" + name + ".d"; }

// Makes a folder that everybody may look into, whatever the umask.
bool MakeFolder(const std::string &path) {
    if (mkdir(path.c_str(), 0755) == 0) return chmod(path.c_str(), 0755) == 0;
    return errno == EEXIST;
}

bool IsFolder(const std::string &path, FileStatus *found) {
    return LookAtLink(path.c_str(), found) && S_ISDIR(found->mode);
}

// Makes sure that the link to the newest file is there. A name that something else bears is left alone.
void MakeLink(const std::string &base, const std::string &name) {
    [[maybe_unused]] const int linked =
        symlink((name + ".d/" + name + ".log").c_str(), (base + "/" + name + ".log").c_str());
}

// Moves the folder of another user out of the way, and the one that is the user's own back. Nothing inside is touched:
// another user may have put anything there.
int ExchangeFolders(const std::string &folder, uid_t user) {
    FileStatus found;
    if (!IsFolder(folder, &found)) {
        if (errno == ENOENT || unlink(folder.c_str()) == 0) return 0;
        return errno;
    }
    if (found.owner == user) return 0;
    const std::string former = folder + "." + std::to_string(found.owner);
    if (std::rename(folder.c_str(), former.c_str()) != 0) return errno;
    const std::string own = folder + "." + std::to_string(user);
    if (IsFolder(own, &found) && found.owner == user) (void)std::rename(own.c_str(), folder.c_str());
    return 0;
}

std::string StateHome() {
    const char *home = std::getenv("XDG_STATE_HOME");
    return home != nullptr && *home == '/' ? home : "";
}

bool IsOwn(const std::string &folder) {
    FileStatus found;
    if (!IsFolder(folder, &found)) return false;
    errno = EPERM; // where it is another's
    return found.owner == geteuid();
}

bool MakeParts(const std::string &path) {
    for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        if (!MakeFolder(path.substr(0, end))) return false;
    }
    return MakeFolder(path);
}

} // namespace

int PrepareLogPlace(const std::string &serviceName, const std::string &account) {
    if (geteuid() == 0 && !IsFileName(serviceName)) return EINVAL;
    uid_t user = 0;
    gid_t group = 0;
    int error = FindAccount(account, &user, &group);
    if (error != 0) return error;
    if (!MakeFolder(rootsFolder)) return errno;
    const std::string folder = FolderUnder(rootsFolder, serviceName);
    error = ExchangeFolders(folder, user);
    if (error != 0) return error;
    if (mkdir(folder.c_str(), 0700) == 0) {
        int made = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (made < 0) return errno;
        const DescriptorGuard closed(&made);
        if (fchmod(made, 0755) != 0 || fchown(made, user, group) != 0) return errno;
    } else if (errno != EEXIST) {
        return errno;
    }
    MakeLink(rootsFolder, serviceName);
    return 0;
}

std::string OwnLogFolder(const std::string &serviceName) {
    if (!IsFileName(serviceName)) {
        errno = EINVAL;
        return "";
    }
    if (geteuid() == 0) (void)PrepareLogPlace(serviceName, ""); // else it is found missing
    std::string folder = FolderUnder(rootsFolder, serviceName);
    if (IsOwn(folder)) return folder;
    const int error = errno;
    const std::string home = StateHome();
    folder = FolderUnder(home + "/tv/log", serviceName);
    if (!home.empty() && MakeParts(folder) && IsOwn(folder)) return folder;
    errno = error;
    return "";
}

std::string FindLogFolder(const std::string &serviceName) {
    if (!IsFileName(serviceName)) return "";
    FileStatus found;
    std::string folder = FolderUnder(rootsFolder, serviceName);
    if (IsFolder(folder, &found)) return folder;
    const std::string home = StateHome();
    folder = FolderUnder(home + "/tv/log", serviceName);
    return !home.empty() && IsFolder(folder, &found) ? folder : "";
}

std::string LogFilePath(const std::string &folder, const std::string &serviceName, unsigned number) {
    return folder + "/" + serviceName + ".log" + (number == 0 ? "" : "." + std::to_string(number));
}
