// SPDX-License-Identifier: MIT
// local_configs: the configurations of many services in one go, out of the registry of this machine. The daemon reads
// a dozen values there for each, one after the other.
#pragma once

#include "tvsc/service_view.h"

#include <vector>

// How much of a configuration is wanted: what a table shows, or all of it.
enum class ConfigPart { startAndGroup, all };

// Sets the configurations of services whose daemon is that of this machine (session.h). Type and tag are those in the
// registry, which the daemon takes over when it starts. Those that cannot be read so stay empty, and are to be asked of
// the daemon (ReadConfigByName).
void ReadLocalConfigs(ConfigPart part, std::vector<ServiceView> *views);
