// SPDX-License-Identifier: MIT
// doctor: all checks, and why one service is as it is. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

// 0; 6 where something keeps services from loading or starting; with isStrict 1 for a warning.
int RunDoctor(const Options &options, bool isStrict);

// A Win32 code by its number or name, else a service.
int RunExplain(const Options &options, const std::string &what);
