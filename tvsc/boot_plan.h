// SPDX-License-Identifier: MIT
// boot_plan: which services the daemon starts when it starts itself, in which order and why.
//
// Two steps: what the daemon would load is read from the registry, which is left as it is; from that alone follows the
// order. Services are numbered from 0 in load order; the daemon's record of one is its number plus 1.
#pragma once

#include "tv/winreg.h"
#include "tv/winsvc.h"

#include <optional>
#include <string>
#include <vector>

struct BootService {
    std::string name;
    std::string displayName = {};
    std::string imagePath = {};
    DWORD type = SERVICE_WIN32_OWN_PROCESS;
    std::optional<DWORD> start = {};            // without it the service never starts by itself
    DWORD tag = 0;                              // that of the service before, where it has none of its own
    DWORD dependenciesCode = 0;                 // why its dependencies cannot be read; ends every walk that comes by
    std::vector<std::string> dependencies = {}; // services, and groups with a leading +
    std::optional<std::string> account = {};    // nothing where it has none, or none that can be read
};

// Whether nobody can start it, the daemon neither.
[[nodiscard]] bool IsMasked(const BootService &service);

struct BootGroup {
    std::string name;
    std::vector<std::size_t> members; // in the order in which a dependency on the group is walked
};

struct BootDatabase {
    std::vector<BootService> services;
    std::vector<BootGroup> groups;    // those of the order list first
    std::size_t orderedGroups = 0;    // how many they are
    std::vector<std::string> deleted; // marked for deletion: the daemon deletes them as it loads
};

// Why the daemon would not load its database, and so start nothing.
struct BootFault {
    DWORD code = 0;    // Win32, of the registry call that would fail
    std::string key;   // the service's name, or the last part of another key's path
    std::string value; // empty: the key itself
};

// Reads what a daemon that starts now would load from this HKEY_LOCAL_MACHINE. Returns nothing, or the first fault.
//   faults  where all faults go, and nothing is returned: what cannot be read is then left out of the database
[[nodiscard]] std::optional<BootFault> ReadBootDatabase(HKEY machine, BootDatabase *database,
                                                        std::vector<BootFault> *faults = nullptr);

// One start.
struct BootStep {
    std::size_t service = 0;
    std::size_t startedFor = 0;                // the automatic service that it is started for, or itself
    std::optional<std::size_t> neededBy = {};  // the service through which the walk came to it
    const std::string *throughGroup = nullptr; // the group that the service names instead; the database's
    std::size_t mostTries = 0;                 // one that fails is tried again for each automatic service that needs it
};

enum class BootRemarkKind { disabled, noImage, ring, unknownService, emptyGroup, unreadable, groupOrder, masked };

struct BootRemark {
    BootRemarkKind kind;
    std::size_t service; // whose configuration it is about
    std::string text;

    auto operator<=>(const BootRemark &) const = default;
};

struct BootPlan {
    std::vector<BootStep> steps; // as if each succeeded; without those of masked services
    std::size_t mostTries = 0;   // of all steps
    std::vector<BootRemark> remarks;
};

[[nodiscard]] BootPlan PlanBoot(const BootDatabase &database);

// What keeps the dependencies of services from being followed, whether they are started with the daemon or not: the
// kinds ring (each told once, by its first service), unknownService, emptyGroup and unreadable.
[[nodiscard]] std::vector<BootRemark> RemarkNeeds(const BootDatabase &database);
