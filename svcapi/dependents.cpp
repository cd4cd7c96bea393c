// SPDX-License-Identifier: MIT
// dependents: the Win32 direction of the dependency question, which the daemon does not answer.
#include "svcapi/dependents.h"

#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/listing.h"

#include <algorithm>

namespace {

bool DependsDirectly(const ServiceNode &node, const ServiceNode &on) {
    return std::any_of(node.dependencies.begin(), node.dependencies.end(), [&](const std::string &dependency) {
        if (dependency.front() != SC_GROUP_IDENTIFIERA) return dependency == on.name;
        return !on.group.empty() && dependency.compare(1, std::string::npos, on.group) == 0;
    });
}

void Visit(const std::vector<ServiceNode> &nodes, std::size_t at, std::vector<bool> *seen,
           std::vector<std::size_t> *order) {
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if ((*seen)[i] || !DependsDirectly(nodes[i], nodes[at])) continue;
        (*seen)[i] = true;
        Visit(nodes, i, seen, order);
        order->push_back(i);
    }
}

DWORD ListDependents(DaemonLink &link, const std::string &name, DWORD state, std::vector<ListedService> *dependents) {
    std::vector<ListedService> services;
    DWORD rc = ListAllServices(link, &services);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<ServiceNode> nodes(services.size());
    for (std::size_t i = 0; i < services.size(); ++i) {
        nodes[i].name = services[i].name;
        rc = ReadServiceNode(link, services[i], &nodes[i]);
        // One that was deleted meanwhile depends on nobody any more.
        if (rc != ERROR_SUCCESS && !IsServiceGone(rc)) return rc;
    }
    for (const std::size_t i : DependentsInStopOrder(nodes, name)) {
        const DWORD wanted = services[i].status.dwCurrentState == SERVICE_STOPPED ? SERVICE_INACTIVE : SERVICE_ACTIVE;
        if ((state & wanted) != 0) dependents->push_back(services[i]);
    }
    return ERROR_SUCCESS;
}

} // namespace

bool IsServiceGone(DWORD code) { return code == ERROR_SERVICE_DOES_NOT_EXIST || code == ERROR_INVALID_HANDLE; }

DWORD ReadListedConfig(DaemonLink &link, const ListedService &service, ServiceConfig *config) {
    std::int32_t index = 0;
    DWORD rc = OpenRecord(link, service.name.c_str(), &index);
    if (rc != ERROR_SUCCESS) return rc;
    rc = ReadConfig(link, index, service.name, config);
    if (rc != RPC_S_CALL_FAILED && rc != ERROR_TIMEOUT) (void)CloseRecord(link, index); // it cannot be helped
    return rc;
}

DWORD ReadServiceNode(DaemonLink &link, const ListedService &service, ServiceNode *node) {
    ServiceConfig config;
    const DWORD rc = ReadListedConfig(link, service, &config);
    if (rc == ERROR_SUCCESS) *node = {service.name, config.group, config.dependencies};
    return rc;
}

std::vector<std::size_t> DependentsInStopOrder(const std::vector<ServiceNode> &nodes, const std::string &name) {
    std::vector<std::size_t> order;
    const auto root =
        std::find_if(nodes.begin(), nodes.end(), [&](const ServiceNode &node) { return node.name == name; });
    if (root == nodes.end()) return order;
    std::vector<bool> seen(nodes.size());
    const auto rootIndex = static_cast<std::size_t>(root - nodes.begin());
    seen[rootIndex] = true;
    Visit(nodes, rootIndex, &seen, &order);
    return order;
}

DWORD EnumerateDependents(SC_HANDLE service, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : ListDependents(*call.handle->link, call.handle->name, state, services);
}
