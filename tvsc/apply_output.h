// SPDX-License-Identifier: MIT
// apply_output: what became of services that were brought to what a text says.
#pragma once

#include "tvsc/apply.h"

// The differences of one service, a line each.
void PrintDifferences(const AppliedService &service);

void PrintAppliedJson(const Session &session, const std::vector<AppliedService> &services);
