// SPDX-License-Identifier: MIT
// parameters: what tvhost has to know of the program that it runs, kept in the registry.
//
// All of it stands under HKEY_LOCAL_MACHINE in "SYSTEM\CurrentControlSet\Services\NAME\Parameters":
//   Application     REG_SZ        path of the program
//   AppParameters   REG_SZ        its arguments, split at blanks; "double quotes" keep blanks, a backslash keeps the
//                                 quote or backslash behind it
//   AppDirectory    REG_SZ        working directory
//   AppEnvironment  REG_MULTI_SZ  NAME=VALUE strings, on top of tvhost's own environment; NAME= takes a variable away
//   AppStdout       REG_SZ        file that takes the program's standard output, appended to
//   AppStderr       REG_SZ        likewise standard error; both may name the same file
//   AppStopTimeout  REG_DWORD     milliseconds between SIGTERM and SIGKILL, at most 2000000000
// Only the first is required.
#pragma once

#include "tv/wintypes.h"

#include <optional>
#include <string>
#include <vector>

constexpr DWORD defaultStopTimeoutMs = 20'000;
constexpr DWORD longestStopTimeoutMs = 2'000'000'000; // 23 days; leaves room to add to it

struct HostParameters {
    std::string application;
    std::string arguments;
    std::string directory;
    std::vector<std::string> environment;
    std::string standardOutput;
    std::string standardError;
    DWORD stopTimeoutMs = defaultStopTimeoutMs;
};

// Read all of a service's parameters. Returns 0, 2 ERROR_FILE_NOT_FOUND when there is no "Application", 13
// ERROR_INVALID_DATA when a value has the wrong type, or a code of the registry.
[[nodiscard]] DWORD ReadHostParameters(const std::string &serviceName, HostParameters *parameters);

// Whether the service may run in this process as far as its account goes: the daemon never hands a process of root the
// start of a service whose account is another's. Returns 0, 1057 ERROR_INVALID_SERVICE_ACCOUNT, or a code of the
// registry.
[[nodiscard]] DWORD CheckServiceAccount(const std::string &serviceName);

// Writes them; what is empty is not written. Returns 0 or a code of the registry.
[[nodiscard]] DWORD WriteHostParameters(const std::string &serviceName, const HostParameters &parameters);

// The words of a command line. Nothing when a quote is not closed.
[[nodiscard]] std::optional<std::vector<std::string>> SplitCommandLine(const std::string &line);
// The same, but only the first word; *rest is what follows it.
[[nodiscard]] std::optional<std::string> FirstWord(const std::string &line, std::string *rest);
