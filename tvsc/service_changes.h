// SPDX-License-Identifier: MIT
// service_changes: what differs between two looks at the services.
#pragma once

#include "tvsc/service_view.h"

#include <map>

enum class ChangeKind { appeared, changed, disappeared };

// One service that differs.
struct ServiceChange {
    ChangeKind kind;
    std::optional<ServiceView> before; // nothing for one that has appeared
    std::optional<ServiceView> after;  // nothing for one that has disappeared
};

using ViewsByName = std::map<std::string, ServiceView>;

// Every change, in the order of names. A check point or a wait hint is progress and no change; another process is one.
[[nodiscard]] std::vector<ServiceChange> ChangesBetween(const ViewsByName &before, const ViewsByName &after);
