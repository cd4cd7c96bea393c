// SPDX-License-Identifier: MIT
// local_configs: the configurations of many services in one go, out of the registry of this machine. The daemon reads
// a dozen values there for each, one after the other.
#pragma once

#include "svcapi/packing.h"

#include <optional>

// How much of a configuration is wanted; the rest of it is empty.
enum class ConfigPart { accountStartAndGroup, groupAndDependencies, all };

// Reads the configurations of services whose daemon is that of this machine (IsThisMachine). Type and tag are those in
// the registry, which the daemon takes over when it starts. Returns one for each; those that cannot be read so are
// nothing, and are to be asked of the daemon.
[[nodiscard]] std::vector<std::optional<ServiceConfig>> ReadLocalConfigs(ConfigPart part,
                                                                         const std::vector<ListedService> &services);
