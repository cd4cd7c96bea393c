// SPDX-License-Identifier: MIT
// prepare: what services need that nobody but root can make, and that a boot takes away. Returns the exit status.
#pragma once

#include "tvsc/session.h"

// Makes the files of services under accounts (svcapi/service_files.h). Reads the registry of
// this machine; the daemon need not run.
int RunPrepare(const Options &options);
