// SPDX-License-Identifier: MIT
// image_path: from command lines to launchers and back.
#include "svcapi/image_path.h"

#include "svcapi/dependents.h"
#include "svcapi/listing.h"

#include <filesystem>

DWORD PlanImage(DaemonLink &link, const std::string &name, const std::string &given, PlannedImage *image) {
    *image = {given, std::nullopt};
    if (!IsThisMachine(link.host)) return ERROR_SUCCESS;
    std::optional<LaunchedProgram> program = ProgramBehind(given);
    if (!program) return ERROR_SUCCESS;
    std::string problem; // for people; a code is all that can be told here
    DWORD rc = PlanLauncher(name, *program, &problem);
    std::optional<std::string> user;
    if (rc == ERROR_SUCCESS) rc = FindLauncherUser(link, name, &user);
    if (rc != ERROR_SUCCESS) return rc;
    if (user) return ERROR_ALREADY_EXISTS;
    *image = {LauncherPath(name), std::move(program)};
    return ERROR_SUCCESS;
}

DWORD WriteImage(const std::string &name, const PlannedImage &image) {
    std::string problem;
    return image.program ? WriteLauncher(name, *image.program, &problem) : ERROR_SUCCESS;
}

DWORD FindLauncherUser(DaemonLink &link, const std::string &name, std::optional<std::string> *user) {
    std::string problem;
    if (FindLauncher(name, &problem) != ERROR_SUCCESS) return ERROR_SUCCESS; // nothing to be started with
    std::vector<ListedService> services;
    DWORD rc = ListAllServices(link, &services);
    for (const ListedService &other : services) {
        if (rc != ERROR_SUCCESS) return rc;
        ServiceConfig config;
        if (other.name == name) continue;
        rc = ReadListedConfig(link, other, &config);
        if (IsServiceGone(rc)) rc = ERROR_SUCCESS;
        std::error_code failed; // a path that names nothing is nobody's
        if (std::filesystem::equivalent(config.imagePath, LauncherPath(name), failed)) {
            *user = other.name;
            return ERROR_SUCCESS;
        }
    }
    return rc;
}

void RemoveUnusedLauncher(DaemonLink &link, const std::string &name) {
    std::string problem;
    std::optional<std::string> user;
    if (!IsThisMachine(link.host) || FindLauncher(name, &problem) != ERROR_SUCCESS) return;
    if (FindLauncherUser(link, name, &user) != ERROR_SUCCESS || user) return;
    (void)RemoveLauncher(name, &problem); // what stays is replaced by the next service of the name
}

std::string GivenImagePath(const DaemonLink &link, const std::string &name, const std::string &path) {
    if (path != LauncherPath(name) || !IsThisMachine(link.host)) return path;
    return GivenCommandLine(name).value_or(path);
}
