// SPDX-License-Identifier: MIT
// session: what a command works with: an open daemon, the global options and the results so far.
#pragma once

#include "servd/limits.h"
#include "tv/winsvc.h"
#include "tvsc/exit_status.h"
#include "tvsc/terminal.h"
#include "util/guard.h"

#include <ctime>
#include <map>
#include <string>
#include <vector>

inline void CloseHandle(SC_HANDLE handle) { (void)CloseServiceHandle(handle); } // a leaving program cannot do more
using ServiceHandle = std::unique_ptr<tvServiceHandle, Calls<&CloseHandle>>;

struct Options {
    std::string host = "localhost";
    double callTimeoutSec = longestCallSec;
    double waitTimeoutSec = 60;
    bool json = false;
    bool quiet = false;
    bool dryRun = false; // tell what would be done, and do nothing
    bool trace = false;  // tell each call on stderr
    ColourWhen colour = ColourWhen::automatic;
};

// What became of one name.
struct ActionResult {
    std::string name;
    std::string action; // "start", ...
    DWORD code = 0;     // Win32
    int exitStatus = EXIT_DONE;
    std::string text;                        // what was done, or what went wrong
    std::vector<std::string> suggested = {}; // what a name that means nothing may have been meant as
};

// Open services by name.
using OpenServices = std::map<std::string, ServiceHandle>;

struct Session {
    Options options;
    ServiceHandle manager;
    OpenServices found; // by the look for their names, and kept open for what is done with them next
    DWORD initCode = 0;
    std::vector<ActionResult> results;
    time_t begunAt = time(nullptr);
    bool lacksRegistry = false; // said once that configurations cannot be read
};

// Connects; with needDatabase a daemon without a database is a failure. Returns EXIT_DONE, or says why and returns the
// exit status.
[[nodiscard]] int OpenSession(Session &session, bool needDatabase);

// Whether the daemon is that of this machine: files, process ids and the registry here are the daemon's too.
[[nodiscard]] bool IsThisMachine(const Options &options);

// From now on each call to the daemon is told on stderr, after it.
void TraceCalls();

// From now on a call that takes longer than two seconds is explained on stderr, once.
void WatchForBusyDaemon();
