// SPDX-License-Identifier: MIT
// configure: the commands that create, change and delete services. Each returns the exit status.
#pragma once

#include "tvsc/hosted_settings.h"
#include "tvsc/session.h"

#include <optional>

struct CreateOptions {
    std::string name;
    ProgramSettings run; // a program that tvhost runs, or what a launcher gives to `program`
    std::string program; // a service program and its arguments, started directly
    std::string image;   // a csh script
    std::string display;
    std::string description;
    DWORD type = SERVICE_WIN32_OWN_PROCESS;
    DWORD startType = SERVICE_DEMAND_START;
    DWORD errorControl = SERVICE_ERROR_NORMAL;
    std::vector<std::string> dependencies;
    std::string group;
    bool tag = false;
    std::string user;
};
int RunCreate(Session &session, const CreateOptions &create);

struct ConfigOptions {
    std::string name;
    ProgramSettings run; // what tvhost runs for it
    std::optional<std::string> display, description, image, group, user;
    std::optional<DWORD> type, startType, errorControl;
    std::optional<std::string> dependencies; // separated by commas; "" takes all away
    bool tag = false;
};
int RunConfig(Session &session, const ConfigOptions &config);

// Changes the start types of services, and nothing else.
int RunSwitch(Session &session, const std::string &action, const std::vector<std::string> &names, DWORD startType);

struct DeleteOptions {
    std::vector<std::string> names;
    bool stop = false;
    bool withDependents = false; // stop these, too
    bool force = false;          // although it runs, or others that depend on it do
    bool wait = false;
};
// Deletes one service; what comes of it is noted.
void DeleteNamed(Session &session, const std::string &name, const DeleteOptions &options);
int RunDelete(Session &session, const DeleteOptions &options);
