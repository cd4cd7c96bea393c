// SPDX-License-Identifier: MIT
// doctor: all checks, and why one service is as it is. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

// 0; 6 where something keeps services from loading or starting; with isStrict 1 for a warning.
//   registryFile  .reg text to look at in place of the registry; no daemon is asked then; empty: none
int RunDoctor(const Options &options, bool isStrict, const std::string &registryFile);

// A Win32 code by its number or name, else a service.
int RunExplain(const Options &options, const std::string &what);
