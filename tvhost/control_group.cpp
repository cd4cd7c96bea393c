// SPDX-License-Identifier: MIT
// control_group: folders and files of the cgroup2 file system.
#include "tvhost/control_group.h"

#include "util/file_status.h"
#include "util/guard.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace {

constexpr int mostNames = 1000;
constexpr int deepestGroup = 64;
constexpr int mostMoves = 100;          // of all processes of a group, which may fork meanwhile
constexpr char daemonPart[] = "daemon"; // of a group that is handed over

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

std::string Above(const std::string &path) { return path.substr(0, path.rfind('/')); }

// Whether a group was handed over to those who run in it, as systemd marks it.
bool IsDelegated(const std::string &path) {
    for (const char *mark : {"user.delegate", "trusted.delegate"}) {
        char value = 0;
        if (getxattr(path.c_str(), mark, &value, 1) == 1 && value == '1') return true;
    }
    return false;
}

// Where groups are made: in this process's own group, or in the one above where that was handed over and the own one is
// the daemon's part of it.
std::string BaseFolder() {
    const std::string own = OwnFolder();
    const bool isDaemonPart = own.ends_with(std::string("/") + daemonPart) && IsDelegated(Above(own));
    return isDaemonPart ? Above(own) : own;
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
    FileStatus found;
    return !path.empty() && LookAtPath(path.c_str(), &found) && found.inode == inode;
}

std::vector<std::string> WordsIn(const std::string &path) {
    std::ifstream file(path);
    return {std::istream_iterator<std::string>(file), {}};
}

bool Names(const std::string &path, const std::string &word) {
    const std::vector<std::string> words = WordsIn(path);
    return std::find(words.begin(), words.end(), word) != words.end();
}

// Takes the processes of a group into the daemon's part of it: no group but the root hands controllers on and has
// processes of its own. Returns why it cannot be done.
std::string MakeRoom(const std::string &path) {
    const std::string processes = path + "/cgroup.procs", part = path + "/" + daemonPart;
    const bool isRoot = access((path + "/cgroup.type").c_str(), F_OK) != 0;
    if (isRoot || WordsIn(processes).empty()) return "";
    if (!IsDelegated(path)) return path + ": it holds the daemon, and was not handed over (Delegate= of its unit)";
    if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return WhyNot(part);
    for (int move = 0; move < mostMoves; ++move) {
        const std::vector<std::string> present = WordsIn(processes);
        if (present.empty()) return "";
        for (const std::string &process : present) {
            // One that has just ended is no loss, and one that has gone into a group of its own meanwhile stays in it. 0
            // is one that is not seen from here, and would stand for this one.
            if (process != "0" && Names(processes, process)) (void)WriteText(part + "/cgroup.procs", process);
        }
    }
    return processes + ": not all of them can be moved";
}

std::string SetLimit(const ControlGroup &group, const std::string &controller, const std::string &file,
                     const std::string &text) {
    if (group.path.empty()) return "there is no control group for it";
    const std::string refused = HandControllerOn(group, controller);
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
    const std::string base = BaseFolder();
    if (base.empty()) return "no control groups of version 2 here";
    std::string path;
    for (int attempt = 0; attempt < mostNames; ++attempt) {
        path = base + "/" + NameFor(serviceName, attempt);
        if (mkdir(path.c_str(), 0755) == 0) break;
        if (errno != EEXIST) return WhyNot(path);
        path.clear();
    }
    if (path.empty()) return "no name left for a control group";
    FileStatus made;
    group->processes = open((path + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
    if (group->processes < 0 || !LookAtPath(path.c_str(), &made)) {
        const std::string why = WhyNot(path);
        (void)rmdir(path.c_str());
        return why;
    }
    group->path = path;
    group->inode = made.inode;
    return "";
}

void RemoveControlGroup(ControlGroup *group) {
    if (group->processes >= 0) (void)close(group->processes);
    group->processes = -1;
    if (!group->path.empty()) RemoveFolders(group->path, deepestGroup);
    group->path.clear();
}

std::string HandControllerOn(const ControlGroup &group, const std::string &controller) {
    const std::string present = Above(group.path) + "/cgroup.controllers";
    const std::string list = Above(group.path) + "/cgroup.subtree_control";
    if (Names(list, controller)) return "";
    if (!Names(present, controller)) return present + ": no " + controller + " among them";
    // First: a group with processes that hands "cpu" on would get children that take none.
    const std::string refused = MakeRoom(Above(group.path));
    if (!refused.empty()) return refused;
    return WriteText(list, "+" + controller) ? "" : WhyNot(list) + " (+" + controller + ")";
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
