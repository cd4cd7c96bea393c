// SPDX-License-Identifier: MIT
// service_check: whether a service that stands in a text may be written.
//
// What the daemon would not check is checked here: a key that it cannot load keeps it from loading any service.
#pragma once

#include "tvsc/service_text.h"
#include "tvsc/session.h"

// Whether a service may become what a text says. Returns 0, or a code and a text: 3 no image for it, 13 a value that
// cannot be read as what it is, 87 one that is missing, too long or impossible, 123 no name for a service, 1057 no such
// account.
//   before  what it is now; without keys when it is not there. What stands there already is not held against it
[[nodiscard]] DWORD CheckService(const Options &options, const ServiceText &before, const ServiceText &after,
                                 std::string *problem);
