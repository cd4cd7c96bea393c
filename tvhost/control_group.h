// SPDX-License-Identifier: MIT
// control_group: a group of control groups version 2 around the processes of a service, where the machine grants one.
//
// It is made below tvhost's own group, under a name that no other one has, and taken away when the service stops. The
// kernel ends all that is in it at once, also what a killed tvhost has left, and holds its memory and its processor
// time to a limit, where those controllers may be handed on there.
//
// A group that hands controllers on has no processes of its own. tvhost's own group is the daemon's, too: systemd's
// unit has it handed over (Delegate=), which systemd marks with an attribute of the folder. The first limit then moves
// all that is in it into a part named "daemon", and from there on groups are made beside that part. A group without the
// mark is somebody else's to arrange, and the limit is refused.
#pragma once

#include <cstdint>
#include <string>

struct ControlGroup {
    std::string path; // empty: there is none
    std::uint64_t inode = 0;
    int processes = -1; // "cgroup.procs", open for writing: a process joins by writing "0"
};

// Makes a group for a service. Returns why there is none, empty when there is one; release with RemoveControlGroup.
[[nodiscard]] std::string MakeControlGroup(const std::string &serviceName, ControlGroup *group);

// Takes an empty group away, and everything that its processes have made in it.
void RemoveControlGroup(ControlGroup *group);

// Has the group above one hand a controller on to it, making room there first. Returns why it does not.
[[nodiscard]] std::string HandControllerOn(const ControlGroup &group, const std::string &controller);

// Holds what is in a group to a limit. Each returns why that cannot be had, empty when it is.
[[nodiscard]] std::string LimitMemory(const ControlGroup &group, std::uint64_t bytes);
[[nodiscard]] std::string LimitProcessorTime(const ControlGroup &group, unsigned percentOfOne);

// For the group of this path and inode: whether there are processes in it; and their end.
[[nodiscard]] bool HasProcesses(const std::string &path, std::uint64_t inode);
void KillProcesses(const std::string &path, std::uint64_t inode);
void RemoveLeftOver(const std::string &path, std::uint64_t inode);
