// SPDX-License-Identifier: MIT
// host_launcher: where the launcher of tvhost is.
#pragma once

#include <string>

// Beside tvsc itself in a build tree, else where it is installed. Empty when there is none.
[[nodiscard]] std::string HostLauncherPath();
