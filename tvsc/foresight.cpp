// SPDX-License-Identifier: MIT
// foresight: the checks of servd's procedures and of svcapi, in their order.
#include "tvsc/foresight.h"

#include "servd/control_rules.h"
#include "svcapi/client.h"
#include "svcapi/limits.h"
#include "tvsc/apply.h"
#include "tvsc/liveness.h"
#include "tvsc/service_graph.h"
#include "tvsc/service_registry.h"

#include <pwd.h>

#include <algorithm>

namespace {

bool IsShort(const std::optional<std::string> &text) { return CanBeLoaded(text ? text->c_str() : nullptr); }

DWORD CheckTexts(const RequestedService &wanted) {
    if (!IsShort(wanted.image) || !IsShort(wanted.group)) return ERROR_INVALID_PARAMETER;
    return IsShort(wanted.display) ? ERROR_SUCCESS : ERROR_INVALID_NAME;
}

DWORD CheckTag(const RequestedService &wanted) {
    const bool lacksGroup = wanted.wantsTag && wanted.group.value_or("").empty();
    return lacksGroup ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

// Whether the name is free. The registry decides, where also a key without a service has its name.
DWORD CheckIsFree(const Session &session, const std::string &name) {
    ServiceText present;
    std::string problem;
    const DWORD rc = ReadServiceKey(name, session.options.host, &present, &problem);
    if (rc == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (rc == ERROR_SUCCESS) return ERROR_SERVICE_EXISTS;
    if (IsThisMachine(session.options)) return ERROR_DATABASE_DOES_NOT_EXIST;
    const DWORD known = AskForService(session, name); // a registry that only its daemon reaches
    if (known == ERROR_SERVICE_DOES_NOT_EXIST) return ERROR_SUCCESS;
    return known == ERROR_SUCCESS || known == ERROR_SERVICE_MARKED_FOR_DELETE ? DWORD{ERROR_SERVICE_EXISTS} : known;
}

DWORD CheckDisplayName(const Session &session, const RequestedService &wanted) {
    if (!wanted.display) return ERROR_SUCCESS;
    std::string first;
    DWORD rc = QueryKeyName(session.manager.get(), wanted.display->c_str(), &first); // also one that is not listed
    if (rc == ERROR_SERVICE_DOES_NOT_EXIST) return ERROR_SUCCESS;
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<ListedService> services;
    rc = first == wanted.name ? EnumerateAllServices(session.manager.get(), &services) : DWORD{ERROR_DUP_NAME};
    const bool hasOther = std::any_of(services.begin(), services.end(), [&](const ListedService &one) {
        return one.name != wanted.name && one.displayName == *wanted.display;
    });
    return hasOther ? DWORD{ERROR_DUP_NAME} : rc;
}

DWORD CheckAccount(const Session &session, const RequestedService &wanted) {
    const bool isTaken = !wanted.user || !IsThisMachine(session.options) || IsAccount(*wanted.user);
    return isTaken ? ERROR_SUCCESS : ERROR_INVALID_SERVICE_ACCOUNT;
}

// The service as it would be among all, which is added where it is new.
ServiceView *FindOrAdd(std::vector<ServiceView> *views, const std::string &name) {
    const auto found =
        std::find_if(views->begin(), views->end(), [&](const ServiceView &view) { return view.service.name == name; });
    if (found != views->end()) return &*found;
    views->emplace_back();
    views->back().service.name = name;
    return &views->back();
}

// The daemon walks what a service would depend on when its dependencies or its group change.
DWORD CheckDependencies(Session &session, const RequestedService &wanted) {
    const bool isWalk = wanted.dependencies ? !wanted.dependencies->empty() : wanted.group.has_value();
    if (!isWalk) return ERROR_SUCCESS;
    std::vector<ListedService> services;
    const DWORD rc = EnumerateAllServices(session.manager.get(), &services);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<std::optional<ServiceConfig>> configs =
        ReadConfigs(session, ConfigPart::groupAndDependencies, services);
    std::vector<ServiceView> views(services.size());
    for (std::size_t i = 0; i < services.size(); ++i) {
        views[i].service = services[i];
        views[i].config = std::move(configs[i]);
    }
    ServiceView *const view = FindOrAdd(&views, wanted.name);
    if (!view->config) view->config.emplace();
    if (wanted.dependencies) view->config->dependencies = *wanted.dependencies;
    if (wanted.group) view->config->group = *wanted.group;
    const ServiceGraph graph = MakeGraph(std::move(views));
    return LeadsToRing(graph, *FindNode(graph, wanted.name)) ? ERROR_CIRCULAR_DEPENDENCY : ERROR_SUCCESS;
}

// The first code that is none of success.
template <typename... Checks>
DWORD FirstRefusal(Checks... checks) {
    DWORD rc = ERROR_SUCCESS;
    (void)(((rc = checks()) != ERROR_SUCCESS) || ...);
    return rc;
}

DWORD RefusalIn(const SERVICE_STATUS &status, DWORD control) {
    return RefusalOfControl(static_cast<std::int32_t>(status.dwCurrentState),
                            static_cast<std::int32_t>(status.dwControlsAccepted), static_cast<std::int32_t>(control));
}

} // namespace

bool IsAccount(const std::string &account) { return account.empty() || getpwnam(account.c_str()) != nullptr; }

DWORD ForeseeCreate(Session &session, const RequestedService &wanted) {
    return FirstRefusal(
        [&] { return CheckTag(wanted); }, [&] { return CheckTexts(wanted); },
        [&] { return IsServiceName(wanted.name.c_str()) ? DWORD{ERROR_SUCCESS} : DWORD{ERROR_INVALID_NAME}; },
        [&] { return CheckIsFree(session, wanted.name); }, [&] { return CheckAccount(session, wanted); },
        [&] { return CheckDependencies(session, wanted); });
}

DWORD ForeseeConfig(Session &session, SC_HANDLE service, const RequestedService &wanted) {
    const auto checkIsRead = [&]() -> DWORD { // what the change needs of the present configuration
        ServiceConfig present;
        return wanted.hasErrorControl && !wanted.image ? ERROR_SUCCESS : QueryConfig(service, &present);
    };
    return FirstRefusal(
        [&] { return CheckTexts(wanted); }, checkIsRead, [&] { return CheckDisplayName(session, wanted); },
        [&] { return CheckAccount(session, wanted); }, [&] { return CheckDependencies(session, wanted); });
}

DWORD ForeseeControl(const Options &options, SC_HANDLE service, const std::string &name, DWORD control) {
    SERVICE_STATUS status = {};
    if (!tvQueryServiceStatusPassive(service, &status, nullptr)) return GetLastError();
    const DWORD refusal = RefusalIn(status, control);
    if (refusal != ERROR_SUCCESS) return refusal;
    return LookAtProcess(options, name, status.dwCurrentState).isGone ? ERROR_SERVICE_NOT_ACTIVE : ERROR_SUCCESS;
}

DWORD ForeseeStop(const Options &options, SC_HANDLE service, const std::string &name) {
    SERVICE_STATUS status = {};
    if (!tvQueryServiceStatusPassive(service, &status, nullptr)) return GetLastError();
    const DWORD state = status.dwCurrentState;
    const bool needsNone =
        state == SERVICE_STOPPED || state == SERVICE_STOP_PENDING || LookAtProcess(options, name, state).isGone;
    return needsNone ? ERROR_SUCCESS : RefusalIn(status, SERVICE_CONTROL_STOP);
}
