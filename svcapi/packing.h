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
    DWORD processId = 0;  // where somebody asked for it, and it is known
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
//   Record       an enumeration's, for bytes or UTF-16, with a process or without
//   bytesNeeded  bytes for all of services[first...]; 0 when all fitted
//   returned     number packed
// Returns 0, or 234 ERROR_MORE_DATA when not all fitted.
template <typename Record>
[[nodiscard]] DWORD PackServices(const std::vector<ListedService> &services, std::size_t first, Record *buffer,
                                 DWORD bytes, DWORD *bytesNeeded, DWORD *returned);

// Return 0, or 122 ERROR_INSUFFICIENT_BUFFER. *bytesNeeded is set in both cases. The record is one for bytes or UTF-16.
template <typename Record>
[[nodiscard]] DWORD PackConfig(const ServiceConfig &config, Record *buffer, DWORD bytes, DWORD *bytesNeeded);
template <typename Record>
[[nodiscard]] DWORD PackLockStatus(const LockStatus &status, Record *buffer, DWORD bytes, DWORD *bytesNeeded);

// A status with the process that it is of.
[[nodiscard]] SERVICE_STATUS_PROCESS WithProcess(const SERVICE_STATUS &status, DWORD processId);
