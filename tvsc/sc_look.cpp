// SPDX-License-Identifier: MIT
// sc_look: the verbs of sc that look. None of them touches a service: a status is that of an enumeration.
#include "svcapi/client.h"
#include "tvsc/liveness.h"
#include "tvsc/sc_call.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

std::optional<ServiceConfig> ConfigOf(const ScCall &call, const std::string &name) {
    const ServiceHandle opened(OpenServiceA(call.session.manager.get(), name.c_str(), SERVICE_QUERY_CONFIG));
    ServiceConfig config;
    if (opened == nullptr || QueryConfig(opened.get(), &config) != ERROR_SUCCESS) return std::nullopt;
    return config;
}

int QueryOne(ScCall &call, bool withProcess) {
    int status = 0;
    ListedService service;
    const ServiceHandle opened = OpenNamed(call, "EnumQueryServicesStatus:OpenService", &status);
    if (opened == nullptr) return status;
    if (!tvQueryServiceStatusPassive(opened.get(), &service.status, nullptr)) {
        return ScFailed("QueryServiceStatus", GetLastError());
    }
    service.name = call.names.front();
    FillIn(call, &service);
    PrintScStatus(service, false, withProcess);
    fmt::print("\n");
    return EXIT_DONE;
}

int QueryAll(ScCall &call, bool withProcess) {
    DWORD type = SERVICE_WIN32, state = SERVICE_ACTIVE;
    const bool isRight =
        ReadNumberWord(call, "type",
                       {{"driver", SERVICE_DRIVER},
                        {"service", SERVICE_WIN32},
                        {"all", DWORD{SERVICE_DRIVER} | SERVICE_WIN32},
                        {"own", SERVICE_WIN32_OWN_PROCESS},
                        {"share", SERVICE_WIN32_SHARE_PROCESS}},
                       &type) &&
        ReadNumberWord(call, "state",
                       {{"active", SERVICE_ACTIVE}, {"inactive", SERVICE_INACTIVE}, {"all", SERVICE_STATE_ALL}},
                       &state);
    if (!isRight) return ScFailed("EnumServicesStatus", ERROR_INVALID_PARAMETER);
    std::vector<ListedService> services;
    const DWORD rc = EnumerateServices(call.session.manager.get(), type, state, &services);
    if (rc != ERROR_SUCCESS) return ScFailed("EnumServicesStatus", rc);
    const char *group = ScOption(call, "group");
    for (ListedService &service : services) {
        if (group != nullptr && ConfigOf(call, service.name).value_or(ServiceConfig()).group != group) continue;
        FillIn(call, &service);
        // The daemon tells classes only: all drivers, all services.
        if ((service.status.dwServiceType & type) != 0) PrintScStatus(service, true, withProcess);
    }
    return EXIT_DONE;
}

// Asks for a text of unknown length.
template <typename Ask>
DWORD ReadName(std::string *text, Ask ask) {
    DWORD size = 0;
    text->resize(1);
    if (ask(text->data(), &size)) return ERROR_SUCCESS;
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return GetLastError();
    text->resize(++size);
    if (!ask(text->data(), &size)) return GetLastError();
    text->resize(size);
    return ERROR_SUCCESS;
}

template <typename Ask>
int PrintName(const std::string &function, Ask ask) {
    std::string name;
    const DWORD rc = ReadName(&name, ask);
    if (rc != ERROR_SUCCESS) return ScFailed(function, rc);
    ScDone(function);
    fmt::print("Name = {}\n", Printable(name));
    return EXIT_DONE;
}

// A part of the configuration with what it points at; empty, and *status, when it cannot be read, which is told.
std::vector<BYTE> ReadPart(ScCall &call, DWORD level, int *status) {
    const ServiceHandle service = OpenNamed(call, "OpenService", status);
    if (service == nullptr) return {};
    DWORD needed = 0;
    (void)QueryServiceConfig2A(service.get(), level, nullptr, 0, &needed); // tells the size
    std::vector<BYTE> part(needed);
    if (needed != 0 && QueryServiceConfig2A(service.get(), level, part.data(), needed, &needed)) {
        ScDone("QueryServiceConfig2");
        fmt::print("\nSERVICE_NAME: {}\n", Printable(call.names.front()));
        return part;
    }
    *status = ScFailed("QueryServiceConfig2", GetLastError());
    return {};
}

std::string TextOr(const char *text) { return text != nullptr ? Printable(text) : ""; }

} // namespace

void FillIn(const ScCall &call, ListedService *service) {
    const ProcessView process = LookAtProcess(call.session.options, service->name, service->status.dwCurrentState);
    service->processId = process.isGone ? 0 : static_cast<DWORD>(process.process);
    if (service->status.dwServiceType != 0) return;
    if (const auto config = ConfigOf(call, service->name)) service->status.dwServiceType = config->type;
}

int ScQuery(ScCall &call) { return call.names.empty() ? QueryAll(call, false) : QueryOne(call, false); }

int ScQueryEx(ScCall &call) { return call.names.empty() ? QueryAll(call, true) : QueryOne(call, true); }

int ScQueryConfig(ScCall &call) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    ServiceConfig config;
    const DWORD rc = QueryConfig(service.get(), &config);
    if (rc != ERROR_SUCCESS) return ScFailed("QueryServiceConfig", rc);
    ScDone("QueryServiceConfig");
    PrintScConfig(call.names.front(), config);
    return EXIT_DONE;
}

int ScQueryDescription(ScCall &call) {
    int status = 0;
    const std::vector<BYTE> part = ReadPart(call, SERVICE_CONFIG_DESCRIPTION, &status);
    if (part.empty()) return status;
    fmt::print("DESCRIPTION:  {}\n",
               TextOr(reinterpret_cast<const SERVICE_DESCRIPTIONA *>(part.data())->lpDescription));
    return EXIT_DONE;
}

int ScQueryFailure(ScCall &call) {
    int status = 0;
    const std::vector<BYTE> part = ReadPart(call, SERVICE_CONFIG_FAILURE_ACTIONS, &status);
    if (part.empty()) return status;
    const auto *actions = reinterpret_cast<const SERVICE_FAILURE_ACTIONSA *>(part.data());
    fmt::print("        {:<29}: {}\n", "RESET_PERIOD (in seconds)",
               actions->dwResetPeriod == 0xFFFFFFFF ? "INFINITE" : std::to_string(actions->dwResetPeriod));
    fmt::print("        {:<29}: {}\n", "REBOOT_MESSAGE", TextOr(actions->lpRebootMsg));
    fmt::print("        {:<29}: {}\n", "COMMAND_LINE", TextOr(actions->lpCommand));
    constexpr const char *words[] = {"NONE", "RESTART", "REBOOT", "RUN PROCESS"};
    for (DWORD i = 0; i < actions->cActions; ++i) {
        const SC_ACTION &action = actions->lpsaActions[i];
        const auto type = static_cast<std::size_t>(action.Type);
        fmt::print("        {:<29}{} {} -- Delay = {} milliseconds.\n", i == 0 ? "FAILURE_ACTIONS" : "",
                   i == 0 ? ':' : ' ', type < std::size(words) ? words[type] : "", action.Delay);
    }
    return EXIT_DONE;
}

int ScEnumDepend(ScCall &call) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    std::vector<ListedService> dependents;
    const DWORD rc = EnumerateDependents(service.get(), SERVICE_STATE_ALL, &dependents);
    if (rc != ERROR_SUCCESS) return ScFailed("EnumDependentServices", rc);
    fmt::print("Enum: entriesRead  = {}\n", dependents.size());
    for (ListedService &dependent : dependents) {
        FillIn(call, &dependent);
        PrintScStatus(dependent, true, false);
    }
    return EXIT_DONE;
}

int ScGetDisplayName(ScCall &call) {
    return PrintName("GetServiceDisplayName", [&](char *text, DWORD *size) {
        return GetServiceDisplayNameA(call.session.manager.get(), call.names.front().c_str(), text, size);
    });
}

int ScGetKeyName(ScCall &call) {
    return PrintName("GetServiceKeyName", [&](char *text, DWORD *size) {
        return GetServiceKeyNameA(call.session.manager.get(), call.names.front().c_str(), text, size);
    });
}

int ScQueryLock(ScCall &call) {
    LockStatus lock;
    const DWORD rc = QueryLock(call.session.manager.get(), &lock);
    if (rc != ERROR_SUCCESS) return ScFailed("QueryServiceLockStatus", rc);
    ScDone("QueryServiceLockStatus");
    fmt::print("        IS_LOCKED      : {}\n        LOCK_OWNER     : {}\n"
               "        LOCK_DURATION  : {} (seconds since acquired)\n",
               lock.locked ? "TRUE" : "FALSE", lock.locked ? Printable(lock.owner) : "",
               lock.locked ? lock.durationSec : 0);
    return EXIT_DONE;
}
