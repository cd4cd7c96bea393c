// SPDX-License-Identifier: MIT
// host: a service from its start request to its end.
#pragma once

#include "tvhost/program.h"

// Runs the program of a service, again and again where it is to be restarted, until a stop is asked for or it stays
// ended. To be called by a thread that lives as long as the programs do. Returns the codes to stop with.
[[nodiscard]] ExitCodes RunService(const std::string &serviceName, const std::vector<std::string> &startArguments);
