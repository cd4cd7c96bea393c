// SPDX-License-Identifier: MIT
// doctor: all checks, and why one service is as it is. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

struct DoctorOptions {
    bool isStrict = false;     // a warning fails, too
    bool mendsEntries = false; // takes the port mapper's entries of processes away that have ended
    std::string registryFile;  // .reg text to look at in place of the registry; no daemon is asked then; empty: none
};

// 0; 6 where something keeps services from loading or starting; 1 for a warning where that is wanted.
int RunDoctor(const Options &options, const DoctorOptions &doctor);

// A Win32 code by its number or name, else a service.
int RunExplain(const Options &options, const std::string &what);
// A service, also one that is called like a code.
int RunExplainService(const Options &options, const std::string &name);
