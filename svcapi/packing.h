// SPDX-License-Identifier: MIT
// packing: answers as the caller's buffers want them, records first and the strings they point at behind them.
//
// Everything here is a function of its arguments.
#pragma once

#include "tv/winsvc.h"

#include <string>
#include <vector>

// One service as enumerations list it.
struct ListedService {
    std::string name;
    std::string displayName;
    SERVICE_STATUS status = {};
    bool complete = true; // false: only state and accepted controls are known, the other words are 0
};

struct ServiceConfig {
    DWORD type = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
    std::string imagePath;
    std::string group;
    DWORD tag = 0;
    std::vector<std::string> dependencies; // groups with their leading "+"
    std::string account;
    std::string displayName;
};

struct LockStatus {
    bool locked = false;
    std::string owner;
    DWORD durationSec = 0;
};

// Packs as many of services[first...] as fit, in order.
//   bytesNeeded  bytes for all of services[first...]; 0 when all fitted
//   returned     number packed
// Returns 0, or 234 ERROR_MORE_DATA when not all fitted.
[[nodiscard]] DWORD PackServices(const std::vector<ListedService> &services, std::size_t first,
                                 ENUM_SERVICE_STATUSA *buffer, DWORD bytes, DWORD *bytesNeeded, DWORD *returned);

// Return 0, or 122 ERROR_INSUFFICIENT_BUFFER. *bytesNeeded is set in both cases.
[[nodiscard]] DWORD PackConfig(const ServiceConfig &config, QUERY_SERVICE_CONFIGA *buffer, DWORD bytes,
                               DWORD *bytesNeeded);
[[nodiscard]] DWORD PackLockStatus(const LockStatus &status, QUERY_SERVICE_LOCK_STATUSA *buffer, DWORD bytes,
                                   DWORD *bytesNeeded);
