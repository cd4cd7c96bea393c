// SPDX-License-Identifier: MIT
// daemon: questions to the daemon itself. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

int RunPing(const Options &options, int count);
int RunWaitOnline(const Options &options);
int RunDaemonStatus(const Options &options);
int RunDaemonRpcInfo(const Options &options); // its entry at the port mapper, and the registry daemon's
int RunDaemonStop(const Options &options);
