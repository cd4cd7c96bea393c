// SPDX-License-Identifier: MIT
// control_group: folders and files of the cgroup2 file system.
#include "tvhost/control_group.h"

#include "util/guard.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

constexpr int mostNames = 1000;
constexpr int deepestGroup = 64;

void CloseFolder(DIR *folder) { (void)closedir(folder); }
using Folder = std::unique_ptr<DIR, Calls<&CloseFolder>>;

std::string WhyNot(const std::string &path) { return path + ": " + std::strerror(errno); }

// The place of the version 2 file system, and the part of it that is seen there; empty when it is nowhere.
std::string FindMount(std::string *root) {
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(" - cgroup2 ") == std::string::npos) continue;
        std::istringstream fields(line);
        std::string skipped, place;
        fields >> skipped >> skipped >> skipped >> *root >> place;
        return place;
    }
    return "";
}

std::string OwnGroup() {
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (line.starts_with("0::")) return line.substr(3);
    }
    return "";
}

// The folder of this process's own group; empty when it cannot be seen.
std::string OwnFolder() {
    std::string root;
    const std::string place = FindMount(&root);
    std::string own = OwnGroup();
    if (place.empty() || own.empty()) return "";
    if (root != "/" && own.starts_with(root)) own.erase(0, root.size());
    return own == "/" ? place : place + own;
}

std::string NameFor(const std::string &serviceName, int attempt) {
    std::string name = "tv-";
    for (const char c : serviceName) {
        name.push_back(std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' ? c : '_');
    }
    constexpr std::size_t longest = 200;
    return name.substr(0, longest) + "-" + std::to_string(getpid()) +
           (attempt == 0 ? "" : "-" + std::to_string(attempt));
}

bool WriteText(const std::string &path, const std::string &text) {
    int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) return false;
    const DescriptorGuard closed(&file);
    return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool IsThatGroup(const std::string &path, std::uint64_t inode) {
    struct stat found = {};
    return !path.empty() && stat(path.c_str(), &found) == 0 && std::uint64_t{found.st_ino} == inode;
}

// Has the group above hand a controller on.
std::string HandOn(const ControlGroup &group, const std::string &controller) {
    const std::string above = group.path.substr(0, group.path.rfind('/')) + "/cgroup.subtree_control";
    return WriteText(above, "+" + controller) ? "" : WhyNot(above) + " (+" + controller + ")";
}

std::string SetLimit(const ControlGroup &group, const std::string &controller, const std::string &file,
                     const std::string &text) {
    if (group.path.empty()) return "there is no control group for it";
    const std::string refused = HandOn(group, controller);
    const std::string path = group.path + "/" + file;
    if (WriteText(path, text)) return "";
    return refused.empty() ? WhyNot(path) : refused;
}

// Takes empty groups away, those inside first.
void RemoveFolders(const std::string &path, int depth) {
    if (rmdir(path.c_str()) == 0 || depth == 0) return;
    const Folder folder(opendir(path.c_str()));
    if (folder == nullptr) return;
    while (const dirent *entry = readdir(folder.get())) {
        if (entry->d_type == DT_DIR && entry->d_name[0] != '.') RemoveFolders(path + "/" + entry->d_name, depth - 1);
    }
    (void)rmdir(path.c_str());
}

} // namespace

std::string MakeControlGroup(const std::string &serviceName, ControlGroup *group) {
    const std::string own = OwnFolder();
    if (own.empty()) return "no control groups of version 2 here";
    std::string path;
    for (int attempt = 0; attempt < mostNames; ++attempt) {
        path = own + "/" + NameFor(serviceName, attempt);
        if (mkdir(path.c_str(), 0755) == 0) break;
        if (errno != EEXIST) return WhyNot(path);
        path.clear();
    }
    if (path.empty()) return "no name left for a control group";
    struct stat made = {};
    group->processes = open((path + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
    if (group->processes < 0 || stat(path.c_str(), &made) != 0) {
        const std::string why = WhyNot(path);
        (void)rmdir(path.c_str());
        return why;
    }
    group->path = path;
    group->inode = made.st_ino;
    return "";
}

void RemoveControlGroup(ControlGroup *group) {
    if (group->processes >= 0) (void)close(group->processes);
    group->processes = -1;
    if (!group->path.empty()) RemoveFolders(group->path, deepestGroup);
    group->path.clear();
}

std::string LimitMemory(const ControlGroup &group, std::uint64_t bytes) {
    return SetLimit(group, "memory", "memory.max", std::to_string(bytes));
}

std::string LimitProcessorTime(const ControlGroup &group, unsigned percentOfOne) {
    constexpr std::uint64_t periodUs = 100'000;
    return SetLimit(group, "cpu", "cpu.max",
                    std::to_string(periodUs * percentOfOne / 100) + " " + std::to_string(periodUs));
}

bool HasProcesses(const std::string &path, std::uint64_t inode) {
    if (!IsThatGroup(path, inode)) return false;
    std::ifstream events(path + "/cgroup.events");
    for (std::string key, value; events >> key >> value;) {
        if (key == "populated") return value == "1";
    }
    return false;
}

void KillProcesses(const std::string &path, std::uint64_t inode) {
    if (IsThatGroup(path, inode)) (void)WriteText(path + "/cgroup.kill", "1"); // missing before Linux 5.14
}

void RemoveLeftOver(const std::string &path, std::uint64_t inode) {
    if (IsThatGroup(path, inode)) RemoveFolders(path, deepestGroup);
}
