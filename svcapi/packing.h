// SPDX-License-Identifier: MIT
// packing: answers as the caller's buffers want them, records first and the strings they point at behind them.
//
// Everything here is a function of its arguments.
#pragma once

#include "svcapi/service_list.h"

#include <string>
#include <vector>

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

// Lays services[first] and those behind it out in a buffer, as many as fit: records from its beginning on, their texts
// behind the last of them, those of the first record last. Nothing is written behind that.
//   Record       an enumeration's, for bytes or UTF-16, with a process or without
//   bytesNeeded  bytes for all of them; 0 when all fitted
//   returned     number packed
// Returns 0, or 234 ERROR_MORE_DATA when not all fitted.
template <typename Record>
[[nodiscard]] DWORD PackServices(const ServiceList &services, std::size_t first, Record *buffer, DWORD bytes,
                                 DWORD *bytesNeeded, DWORD *returned);

// Return 0, or 122 ERROR_INSUFFICIENT_BUFFER. *bytesNeeded is set in both cases. The record is one for bytes or UTF-16.
template <typename Record>
[[nodiscard]] DWORD PackConfig(const ServiceConfig &config, Record *buffer, DWORD bytes, DWORD *bytesNeeded);
template <typename Record>
[[nodiscard]] DWORD PackLockStatus(const LockStatus &status, Record *buffer, DWORD bytes, DWORD *bytesNeeded);

// A status with the process that it is of.
[[nodiscard]] SERVICE_STATUS_PROCESS WithProcess(const SERVICE_STATUS &status, DWORD processId);
