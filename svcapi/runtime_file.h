// SPDX-License-Identifier: MIT
// runtime_file: small files that a service leaves about itself, one of each suffix.
//
// They are NAME and the suffix under /run/tv/services, or under $XDG_RUNTIME_DIR/tv/services where the first cannot be
// written. /run/tv/services is root's, and nobody else makes or removes files there. A service that runs under an
// account gets files of its own, which root has made for it and given to the account: when the service is created or
// its account changes (CreateServiceA, ChangeServiceConfigA), and at boot, since /run is empty then (tvsc prepare).
// What is trusted: that a file was put there by root. What an account writes into its file can only concern processes
// of its own; see IsBelieved.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

constexpr char stateSuffix[] = ".state"; // of what tvhost leaves (tvhost/state_file.h)

// A name that would leave a folder, or hide in it, has no file.
[[nodiscard]] bool IsFileName(const std::string &name);

// Makes a file for a service that will run under this account, empty, or makes it anew where it is another user's.
// Returns 0, also where there is nothing to do, because the account is empty or root's; EPERM for anybody but root,
// EINVAL for a name that cannot be a file's, ENOENT for an unknown account, or the errno of what failed.
[[nodiscard]] int PrepareRuntimeFile(const std::string &serviceName, const char *suffix, const std::string &account);

// Finds the user and group of an account. Returns 0, EPERM for anybody but root, or ENOENT. Empty is user and group 0.
[[nodiscard]] int FindAccount(const std::string &account, uid_t *user, gid_t *group);

// Writes a file whole: readers find the old text or the new one, or, where it cannot be replaced, text behind the new
// one. Returns its path; empty when it could not be written.
std::string WriteRuntimeFile(const std::string &serviceName, const char *suffix, const std::string &text);

// Takes the service's files of a suffix away that begin so; one stays, and is empty, where it is not ours to remove.
void RemoveRuntimeFiles(const std::string &serviceName, const char *suffix, const std::string &beginning);

struct RuntimeFile {
    std::string text;
    uid_t owner = 0;
    std::int64_t writtenAt = 0; // seconds since the epoch
};

// What the service's files of a suffix hold, up to mostBytes each; those that are empty or no files are left out.
[[nodiscard]] std::vector<RuntimeFile> ReadRuntimeFiles(const std::string &serviceName, const char *suffix,
                                                        std::size_t mostBytes);

// Whether a process that a file of this owner names is believed to be the service's.
[[nodiscard]] bool IsBelieved(pid_t process, uid_t owner);
