// SPDX-License-Identifier: MIT
// act: the commands that move services between states. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

struct StartOptions {
    std::vector<std::string> names;
    std::vector<std::string> arguments;
    bool withDependencies = false;
    bool force = false; // disabled services, too
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
// With dependents: these are started again, too.
int RunRestart(Session &session, const StopOptions &restart);

// Stops the services that depend on this one, as told; refuses, which is noted, where they run and nothing was told.
// Returns whether none is in the way any more. A dry run stops none, and returns whether that would be so.
//   stopped  takes the names of those that were stopped, in that order; may be null
[[nodiscard]] bool ClearDependents(Session &session, const std::string &name, const std::string &action,
                                   const StopOptions &stop, std::vector<std::string> *stopped = nullptr);

int RunControl(Session &session, const std::vector<std::string> &names, DWORD control, bool wait);
// For what is no state.
constexpr DWORD waitForFailure = 100;
constexpr DWORD waitForDeletion = 101;
int RunWait(Session &session, const std::vector<std::string> &names, DWORD state);
