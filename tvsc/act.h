// SPDX-License-Identifier: MIT
// act: the commands that move services between states. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

struct StartOptions {
    std::vector<std::string> names;
    std::vector<std::string> arguments;
    bool withDependencies = false;
    bool wait = true;
};
int RunStart(Session &session, const StartOptions &start);

struct StopOptions {
    std::vector<std::string> names;
    bool all = false;
    bool withDependents = false;
    bool force = false;
    bool wait = true;
};
int RunStop(Session &session, const StopOptions &stop);
int RunRestart(Session &session, const std::vector<std::string> &names);
int RunControl(Session &session, const std::vector<std::string> &names, DWORD control, bool wait);
int RunWait(Session &session, const std::vector<std::string> &names, DWORD state);
int RunReset(Session &session, const std::vector<std::string> &names);
