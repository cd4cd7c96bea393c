// SPDX-License-Identifier: MIT
// image_path: what the API does with the path of a service's program.
//
// The daemon knows image paths only, and runs what they name with csh. Win32 programs give a command line. For one, and
// for the path of a program, a launcher is written (image_launcher.h); the daemon gets the launcher's path, and whoever
// asks the API for the configuration gets the command line back, which the launcher keeps. All of that on the daemon's
// machine only: for a daemon elsewhere a path stays as it is.
//
// A launcher comes with its service and goes with it: it is written once the daemon has taken the service or the
// change, and removed by the one who deleted the service when closing the handle finds it gone, unless another service
// is started with it. Where it cannot be written there is no service, and no change.
#pragma once

#include "svcapi/image_launcher.h"
#include "svcapi/link.h"
#include "svcapi/packing.h"

// What a service is to be started with.
struct PlannedImage {
    std::string path;                       // for the daemon
    std::optional<LaunchedProgram> program; // what the launcher there is to be written for; nothing without one
};

// All take a connected, locked link.

// Works out the image of a service for the path that a caller gave. Returns 0, or as PlanLauncher; 183 also for a
// launcher that another service is started with; or a code of the link.
[[nodiscard]] DWORD PlanImage(DaemonLink &link, const std::string &name, const std::string &given, PlannedImage *image);

// Writes the launcher, if one is planned.
[[nodiscard]] DWORD WriteImage(const std::string &name, const PlannedImage &image);

// Finds the service other than this one that is started with this one's launcher; *user stays empty when there is none.
[[nodiscard]] DWORD FindLauncherUser(DaemonLink &link, const std::string &name, std::optional<std::string> *user);

// Takes the launcher of a service away that is gone, or has another image now.
void RemoveUnusedLauncher(DaemonLink &link, const std::string &name);

// The image path as it was given: the command line in place of the launcher's path.
[[nodiscard]] std::string GivenImagePath(const DaemonLink &link, const std::string &name, const std::string &path);
