// SPDX-License-Identifier: MIT
// limits: planning in the parent, setting in the child.
#include "tvhost/limits.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr int leastNice = -20, mostNice = 19;
constexpr int mostOomScore = 1000;
constexpr DWORD mostUmask = 0777;

std::optional<DWORD> IfSet(DWORD number) { return number == notSet ? std::nullopt : std::make_optional(number); }

// The groups of this process and those that are named. Returns the name of one that is not there.
std::string FindGroups(const std::vector<std::string> &names, std::vector<gid_t> *groups) {
    const int own = getgroups(0, nullptr);
    groups->resize(own > 0 ? static_cast<std::size_t>(own) : 0);
    if (own > 0 && getgroups(own, groups->data()) < 0) groups->clear();
    for (const std::string &name : names) {
        const group *found = getgrnam(name.c_str());
        if (found == nullptr) return name;
        if (std::find(groups->begin(), groups->end(), found->gr_gid) == groups->end()) groups->push_back(found->gr_gid);
    }
    return "";
}

bool SetResource(__rlimit_resource resource, DWORD limit) {
    const rlim_t most = limit == unlimited ? RLIM_INFINITY : rlim_t{limit};
    const rlimit both = {most, most};
    return setrlimit(resource, &both) == 0;
}

bool SetOomScore(const std::string &text) {
    const int file = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
    const bool isSet = file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) (void)close(file);
    return isSet;
}

// Whoever joins finds itself in the root folder: it goes back to where it was. The descriptors go with the exec.
bool JoinMounts(const char *mounts) {
    const int file = open(mounts, O_RDONLY | O_CLOEXEC), here = open(".", O_PATH | O_CLOEXEC);
    return file >= 0 && here >= 0 && setns(file, CLONE_NEWNS) == 0 && fchdir(here) == 0;
}

// An empty /tmp that only this program and what it starts can see; it goes with them.
bool MakePrivateTmp() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 &&
           mount("tvhost", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
}

} // namespace

std::string PlanLimits(const HostParameters &parameters, Limits *limits) {
    limits->openFiles = IfSet(parameters.openFiles);
    limits->coreBytes = IfSet(parameters.coreBytes);
    limits->umask = IfSet(parameters.umask);
    if (limits->umask && *limits->umask > mostUmask) return "AppUmask: more than 0777";
    if (parameters.nice != noPriority) {
        if (parameters.nice < leastNice || parameters.nice > mostNice) return "AppNice: not between -20 and 19";
        limits->nice = parameters.nice;
    }
    if (parameters.oomScore != noPriority) {
        const bool fits = parameters.oomScore >= -mostOomScore && parameters.oomScore <= mostOomScore;
        if (!fits) return "AppOomScore: not between -1000 and 1000";
        limits->oomScore = std::to_string(parameters.oomScore);
    }
    if (!parameters.groups.empty()) {
        const std::string missing = FindGroups(parameters.groups, &limits->groups);
        if (!missing.empty()) return "AppGroups: there is no group " + missing;
    }
    limits->privateTmp = parameters.privateTmp != 0;
    limits->noNewPrivileges = parameters.noNewPrivileges != 0;
    return "";
}

const char *SetLimits(const Limits &limits, const char *mounts) {
    if (limits.openFiles && !SetResource(RLIMIT_NOFILE, *limits.openFiles)) return "AppLimitNofile";
    if (limits.coreBytes && !SetResource(RLIMIT_CORE, *limits.coreBytes)) return "AppLimitCore";
    if (limits.nice && setpriority(PRIO_PROCESS, 0, *limits.nice) != 0) return "AppNice";
    if (!limits.oomScore.empty() && !SetOomScore(limits.oomScore)) return "AppOomScore";
    if (!limits.groups.empty() && setgroups(limits.groups.size(), limits.groups.data()) != 0) return "AppGroups";
    const bool hasTmp = !limits.privateTmp || (mounts != nullptr ? JoinMounts(mounts) : MakePrivateTmp());
    if (!hasTmp) return "AppPrivateTmp";
    if (limits.umask) (void)umask(*limits.umask);
    return nullptr;
}

const char *BarProgram(const Limits &limits) {
    if (limits.noNewPrivileges && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return "AppNoNewPrivileges";
    return nullptr;
}
