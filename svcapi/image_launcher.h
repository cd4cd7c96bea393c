// SPDX-License-Identifier: MIT
// image_launcher: the csh scripts that services are started with.
//
// The daemon hands an image to /bin/csh as its one argument. A script whose last act is exec keeps the process id,
// which the daemon needs; anything else shows only as 1053 a quarter of a minute later.
#pragma once

#include "tv/wintypes.h"

#include <optional>
#include <string>
#include <vector>

// The launcher of a service that runs a command line: /etc/tv/services/NAME.csh.
[[nodiscard]] std::string LauncherPath(const std::string &name);

// A command line, as it was given and as words: the path of the program first; and what it is started with.
struct LaunchedProgram {
    std::string given;
    std::vector<std::string> words;
    std::vector<std::string> environment = {}; // NAME=VALUE; NAME= takes a variable away
    std::string directory = {};                // empty: the daemon's
};

// A command line split into words; nothing when it has none or a quote is not closed.
[[nodiscard]] std::optional<LaunchedProgram> AsProgram(const std::string &commandLine);

// The program that an image path of Win32 means: the path of a program, or a command line that begins with one, in
// quotes or not. Where its path names nothing, backslashes in it are taken for slashes. Nothing when it means a csh
// script, or something that is not there.
[[nodiscard]] std::optional<LaunchedProgram> ProgramBehind(const std::string &imagePath);

// Whether a launcher can be written; nothing is yet. Returns 0, or a code and a text: 3 no such program, 5 a folder
// that others may write in, 87 and 123 a command line and a name that a launcher cannot have, 183 a file that was not
// written for this service.
[[nodiscard]] DWORD PlanLauncher(const std::string &name, const LaunchedProgram &program, std::string *problem);

// Looks for it. Returns 0 for one that tvsc wrote for this service; 2 when there is none; 5 or 183 as above, and a
// text.
[[nodiscard]] DWORD FindLauncher(const std::string &name, std::string *problem);

// Writes it, whole or not at all, in the place of an older one. Returns 0, or a code and a text: 5 and 183 as above, 8
// where there is no room.
[[nodiscard]] DWORD WriteLauncher(const std::string &name, const LaunchedProgram &program, std::string *problem);

// The command line that a service's launcher was written for, as it was given; nothing when there is no such launcher.
[[nodiscard]] std::optional<std::string> GivenCommandLine(const std::string &name);

// Removes it. Returns as FindLauncher does.
[[nodiscard]] DWORD RemoveLauncher(const std::string &name, std::string *problem);

// Why a file cannot be an image; empty when it can.
[[nodiscard]] std::string WhyNoLauncher(const std::string &path);

// Why a path cannot be that of a program to run; empty when it can.
[[nodiscard]] std::string WhyNoProgram(const std::string &path);
