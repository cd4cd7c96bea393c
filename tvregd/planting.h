// SPDX-License-Identifier: MIT
// planting: the values that some keys have from the beginning (seeds.h), given to keys that are older than these.
#pragma once

#include "tvregd/group.h"

// Gives a registry that was just loaded, perhaps from a database of an earlier version, the values that are missing.
// Returns 0 or the code of a failed write.
[[nodiscard]] std::uint32_t PlantSeeds(Registry &registry);
