// SPDX-License-Identifier: MIT
// process_status: the process that a status is of, as far as anybody knows it.
#pragma once

#include "svcapi/link.h"

#include <string>

// The process id in the service's hint (pid_file.h); 0 when it is stopped, of another machine, or has none.
[[nodiscard]] DWORD ProcessOf(const DaemonLink &link, const std::string &name, const SERVICE_STATUS &status);
