// SPDX-License-Identifier: MIT
// daemon: questions to the daemon itself. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

int RunPing(const Options &options, int count);
int RunWaitOnline(const Options &options);
int RunDaemonStatus(const Options &options);
int RunDaemonStop(const Options &options);
