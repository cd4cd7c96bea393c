// SPDX-License-Identifier: MIT
// edit: a service as text in the user's editor. Returns the exit status.
#pragma once

#include "tvsc/session.h"

int RunEdit(const Options &options, const std::string &name);
