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

// The launcher of a service that runs a command line: /etc/tv/services/NAME.csh.
[[nodiscard]] std::string LauncherPath(const std::string &name);

// Whether that can be written; nothing is yet. Returns 0, or a code and a text: 3 no such program, 5 a folder that
// others may write in, 87 and 123 a command line and a name that a launcher cannot have, 183 a file that tvsc did not
// write for this service.
[[nodiscard]] DWORD PlanLauncher(const std::string &name, const std::string &commandLine, std::string *problem);

// Looks for it. Returns 0 for one that tvsc wrote for this service; 2 when there is none; 5 or 183 as above, and a
// text.
[[nodiscard]] DWORD FindLauncher(const std::string &name, std::string *problem);

// Writes it, whole or not at all, in the place of an older one. Returns 0, or a code and a text: 5 and 183 as above, 8
// where there is no room.
[[nodiscard]] DWORD WriteLauncher(const std::string &name, const std::string &commandLine, std::string *problem);

// Removes it. Returns as FindLauncher does.
[[nodiscard]] DWORD RemoveLauncher(const std::string &name, std::string *problem);

// Why a file cannot be an image; empty when it can.
[[nodiscard]] std::string WhyNoLauncher(const std::string &path);

// Why a path cannot be that of a program to run; empty when it can.
[[nodiscard]] std::string WhyNoProgram(const std::string &path);
