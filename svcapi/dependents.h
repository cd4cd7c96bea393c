// SPDX-License-Identifier: MIT
// dependents: who depends on a service, worked out from configurations.
#pragma once

#include "svcapi/link.h"
#include "svcapi/packing.h"

// What the walk has to know of a service.
struct ServiceNode {
    std::string name;
    std::string group;                     // "" for none
    std::vector<std::string> dependencies; // groups with their leading "+"
};

// The positions in `nodes` of all services that depend on `name`, directly or through others or through its group, each
// once and before the services that it depends on itself: the order in which they have to be stopped. A ring is walked
// once.
[[nodiscard]] std::vector<std::size_t> DependentsInStopOrder(const std::vector<ServiceNode> &nodes,
                                                             const std::string &name);

// Read the configuration of a listed service, and what the walk has to know of it: three calls. Codes as ReadConfig, or
// those of a service that is gone. The link is connected and locked.
[[nodiscard]] DWORD ReadListedConfig(DaemonLink &link, const ListedService &service, ServiceConfig *config);
[[nodiscard]] DWORD ReadServiceNode(DaemonLink &link, const ListedService &service, ServiceNode *node);

// The same of all these services, out of the registry where it is this machine's. Of one that is gone only the name is
// told.
[[nodiscard]] DWORD ReadServiceNodes(DaemonLink &link, const std::vector<ListedService> &services,
                                     std::vector<ServiceNode> *nodes);

// Whether a code says that a service was deleted after it was listed.
[[nodiscard]] bool IsServiceGone(DWORD code);
