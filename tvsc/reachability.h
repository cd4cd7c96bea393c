// SPDX-License-Identifier: MIT
// reachability: why the daemon of a host does not answer.
#pragma once

#include <string>

enum class DaemonPresence {
    unknown, // the port mapper does not tell
    absent,  // not registered, or nobody listens where it is
    refused, // somebody listens there, and this user is refused
    there    // it takes a connection; it may be busy
};

// Looks without a call. Blocks for the waits of dial.h.
[[nodiscard]] DaemonPresence LookForDaemon(const std::string &host);
