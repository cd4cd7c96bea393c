// SPDX-License-Identifier: MIT
// dependents: the Win32 direction of the dependency question, which the daemon does not answer.
#include "svcapi/dependents.h"

#include "svcapi/calls.h"
#include "svcapi/client.h"
#include "svcapi/handles.h"
#include "svcapi/listing.h"
#include "svcapi/local_configs.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace {

// Those who name a service or a group in their dependencies, in order. Whoever goes through them goes on where the last
// one was: what lies before is on the walk already.
struct Dependents {
    std::vector<std::size_t> nodes;
    std::size_t next = 0;
};
using DependentsByName = std::unordered_map<std::string_view, Dependents>; // groups with their leading "+"

DependentsByName IndexDependents(const std::vector<ServiceNode> &nodes) {
    DependentsByName index;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        for (const std::string &dependency : nodes[i].dependencies) {
            index[dependency].nodes.push_back(i);
        }
    }
    return index;
}

// A service on the walk: those who name it, and those who name its group; null for nobody.
struct Step {
    std::size_t node;
    Dependents *ofName;
    Dependents *ofGroup;
};

Dependents *Find(DependentsByName *index, const std::string &name) {
    const auto found = index->find(name);
    return found == index->end() ? nullptr : &found->second;
}

Step StepTo(const std::vector<ServiceNode> &nodes, std::size_t node, DependentsByName *index) {
    const std::string &group = nodes[node].group;
    return {node, Find(index, nodes[node].name), group.empty() ? nullptr : Find(index, SC_GROUP_IDENTIFIERA + group)};
}

// The first of them that is not on the walk yet; all of them when there is none.
std::size_t FirstUnseen(Dependents *dependents, const std::vector<bool> &seen) {
    if (dependents == nullptr) return seen.size();
    while (dependents->next < dependents->nodes.size() && seen[dependents->nodes[dependents->next]]) {
        ++dependents->next;
    }
    return dependents->next < dependents->nodes.size() ? dependents->nodes[dependents->next] : seen.size();
}

// Whether any other service is in one of the wanted states.
DWORD IsAnyOther(DaemonLink &link, const std::string &name, DWORD state, bool *isAny) {
    ServiceList services;
    const DWORD rc = ListServicesAndRecordZero(link, SERVICE_WIN32 | SERVICE_DRIVER, state, &services);
    *isAny = std::any_of(services.places.begin(), services.places.end(),
                         [&](const ServiceList::Place &place) { return NameIn(services, place) != name; });
    return rc;
}

DWORD ListDependents(DaemonLink &link, const std::string &name, DWORD state, std::vector<ListedService> *dependents) {
    DWORD rc = ERROR_SUCCESS;
    if (state != SERVICE_STATE_ALL) {
        // As most often nothing else runs, there is nothing to find out then, and a short list says so.
        bool isAnyWanted = false;
        rc = IsAnyOther(link, name, state, &isAnyWanted);
        if (rc != ERROR_SUCCESS || !isAnyWanted) return rc;
    }
    std::vector<ListedService> services;
    rc = ListAllServices(link, &services);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<ServiceNode> nodes;
    rc = ReadServiceNodes(link, services, &nodes);
    if (rc != ERROR_SUCCESS) return rc;
    for (const std::size_t i : DependentsInStopOrder(nodes, name)) {
        if ((state & StateClassOf(services[i].status)) != 0) dependents->push_back(services[i]);
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

DWORD ReadServiceNodes(DaemonLink &link, const std::vector<ListedService> &services, std::vector<ServiceNode> *nodes) {
    std::vector<std::optional<ServiceConfig>> configs(services.size());
    if (IsThisMachine(link.host)) configs = ReadLocalConfigs(ConfigPart::groupAndDependencies, services);
    nodes->resize(services.size());
    for (std::size_t i = 0; i < services.size(); ++i) {
        ServiceNode &node = (*nodes)[i];
        node.name = services[i].name;
        if (configs[i]) {
            node = {services[i].name, configs[i]->group, configs[i]->dependencies};
            continue;
        }
        const DWORD rc = ReadServiceNode(link, services[i], &node);
        // One that was deleted meanwhile depends on nobody any more.
        if (rc != ERROR_SUCCESS && !IsServiceGone(rc)) return rc;
    }
    return ERROR_SUCCESS;
}

std::vector<std::size_t> DependentsInStopOrder(const std::vector<ServiceNode> &nodes, const std::string &name) {
    std::vector<std::size_t> order;
    const auto root =
        std::find_if(nodes.begin(), nodes.end(), [&](const ServiceNode &node) { return node.name == name; });
    if (root == nodes.end()) return order;
    std::vector<bool> seen(nodes.size());
    DependentsByName index = IndexDependents(nodes);
    const auto rootIndex = static_cast<std::size_t>(root - nodes.begin());
    std::vector<Step> walk = {StepTo(nodes, rootIndex, &index)};
    seen[rootIndex] = true;
    for (;;) {
        const Step &step = walk.back();
        const std::size_t next = std::min(FirstUnseen(step.ofName, seen), FirstUnseen(step.ofGroup, seen));
        if (next < nodes.size()) {
            seen[next] = true;
            walk.push_back(StepTo(nodes, next, &index));
            continue;
        }
        if (walk.size() == 1) break; // back at the service itself
        order.push_back(step.node);
        walk.pop_back();
    }
    return order;
}

DWORD EnumerateDependents(SC_HANDLE service, DWORD state, std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginServiceCall(service, &call);
    return rc != ERROR_SUCCESS ? rc : ListDependents(*call.handle->link, call.handle->name, state, services);
}

DWORD EnumerateDependentsOf(SC_HANDLE manager, const std::string &name, DWORD state,
                            std::vector<ListedService> *services) {
    HandleCall call;
    const DWORD rc = BeginManagerCall(manager, &call);
    return rc != ERROR_SUCCESS ? rc : ListDependents(*call.handle->link, name, state, services);
}
