// SPDX-License-Identifier: MIT
// launcher: the csh scripts that services are started with.
//
// The daemon hands an image to /bin/csh as its one argument. A script whose last act is exec keeps the process id,
// which the daemon needs; anything else shows only as 1053 a quarter of a minute later.
#pragma once

#include "tv/wintypes.h"

#include <string>

// The launcher of tvhost: beside tvsc itself in a build tree, else where it is installed. Empty when there is none.
[[nodiscard]] std::string HostLauncherPath();

// The launcher of a service that runs a command line, /etc/tv/services/NAME.csh. Returns 0 and the path, or a code and
// a text: nothing is written yet.
[[nodiscard]] DWORD PlanLauncher(const std::string &name, const std::string &commandLine, std::string *path,
                                 std::string *problem);
// Writes what was planned. Returns 0 or 5 ERROR_ACCESS_DENIED.
[[nodiscard]] DWORD WriteLauncher(const std::string &name, const std::string &commandLine);
// Removes it. False when there was none.
bool RemoveLauncher(const std::string &name);

// Why a file cannot be an image; empty when it can.
[[nodiscard]] std::string WhyNoLauncher(const std::string &path);

// Why a path cannot be that of a program to run; empty when it can.
[[nodiscard]] std::string WhyNoProgram(const std::string &path);
