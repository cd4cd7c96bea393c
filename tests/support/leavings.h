// SPDX-License-Identifier: MIT
// leavings: what a test leaves on its private host, held against what a manual lists.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

// The living processes of the host, by id and start, and what stands below some folders: files of any kind, and folders
// that are empty.
struct HostContents {
    std::map<std::pair<pid_t, std::uint64_t>, std::string> processes; // their command lines
    std::set<std::string> files;
};
[[nodiscard]] HostContents LookAtHost(const std::vector<std::string> &folders);

// What is there now and was not before.
[[nodiscard]] HostContents NewOnHost(const HostContents &before, const HostContents &now);

// The paths that the section FILES of a manual's source underlines, as expressions that match them.
//   service  an expression for NAME in them; N and UID stand for numbers
[[nodiscard]] std::vector<std::regex> FilesOfManual(const std::string &manual, const std::string &service);
