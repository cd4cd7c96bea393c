// SPDX-License-Identifier: MIT
// plan: the commands that tell what would be done. Each returns the exit status.
#pragma once

#include "tvsc/session.h"

int RunPlanBoot(const Options &options);
