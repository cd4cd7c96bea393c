// SPDX-License-Identifier: MIT
// startup: what the daemon's initialisation makes known.
#include "servd/servd_svc_proc/startup.h"

std::int32_t binitializing;
Win32Code initstatus;
char scmhostname[256];
