// SPDX-License-Identifier: MIT
// sc_control: the verbs of sc that start and control services, and the lock.
#include "tvsc/foresight.h"
#include "tvsc/sc_call.h"

#include <fmt/format.h>

#include <charconv>
#include <iostream>

namespace {

void PrintStatus(const ScCall &call, const SERVICE_STATUS &status, bool withProcess) {
    ListedService service;
    service.name = call.names.front();
    service.status = status;
    FillIn(call, &service);
    PrintScStatus(service, false, withProcess);
    fmt::print("\n");
}

int Control(ScCall &call, DWORD control) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "OpenService", &status);
    if (service == nullptr) return status;
    if (call.session.options.dryRun) {
        const DWORD refusal = ForeseeControl(call.session.options, service.get(), call.names.front(), control);
        return refusal != ERROR_SUCCESS ? ScFailed("ControlService", refusal)
                                        : ScChange(call, "ControlService", nullptr);
    }
    SERVICE_STATUS told = {};
    if (!ControlService(service.get(), control, &told)) return ScFailed("ControlService", GetLastError());
    PrintStatus(call, told, false);
    return EXIT_DONE;
}

} // namespace

int ScStart(ScCall &call) {
    int status = 0;
    const ServiceHandle service = OpenNamed(call, "StartService: OpenService", &status);
    if (service == nullptr) return status;
    if (call.session.options.dryRun) return ScChange(call, "StartService", nullptr);
    std::vector<const char *> arguments;
    for (std::size_t i = 1; i < call.names.size(); ++i) {
        arguments.push_back(call.names[i].c_str());
    }
    if (!StartServiceA(service.get(), static_cast<DWORD>(arguments.size()), arguments.data())) {
        return ScFailed("StartService", GetLastError());
    }
    SERVICE_STATUS told = {};
    if (!tvQueryServiceStatusPassive(service.get(), &told, nullptr)) {
        return ScFailed("QueryServiceStatus", GetLastError());
    }
    PrintStatus(call, told, true);
    return EXIT_DONE;
}

int ScStop(ScCall &call) { return Control(call, SERVICE_CONTROL_STOP); }

int ScPause(ScCall &call) { return Control(call, SERVICE_CONTROL_PAUSE); }

int ScContinue(ScCall &call) { return Control(call, SERVICE_CONTROL_CONTINUE); }

int ScInterrogate(ScCall &call) { return Control(call, SERVICE_CONTROL_INTERROGATE); }

int ScControl(ScCall &call) {
    const std::map<std::string, DWORD> words = {{"paramchange", SERVICE_CONTROL_PARAMCHANGE},
                                                {"netbindadd", SERVICE_CONTROL_NETBINDADD},
                                                {"netbindremove", SERVICE_CONTROL_NETBINDREMOVE},
                                                {"netbindenable", SERVICE_CONTROL_NETBINDENABLE},
                                                {"netbinddisable", SERVICE_CONTROL_NETBINDDISABLE}};
    const std::string &said = call.names[1];
    if (const auto word = words.find(said); word != words.end()) return Control(call, word->second);
    DWORD control = 0;
    const auto [end, code] = std::from_chars(said.data(), said.data() + said.size(), control);
    const bool isNumber = code == std::errc() && end == said.data() + said.size();
    return isNumber ? Control(call, control) : ScFailed("ControlService", ERROR_INVALID_PARAMETER);
}

int ScLock(ScCall &call) {
    if (call.session.options.dryRun) return ScChange(call, "LockServiceDatabase", nullptr);
    const SC_LOCK lock = LockServiceDatabase(call.session.manager.get());
    if (lock == nullptr) return ScFailed("LockServiceDatabase", GetLastError());
    fmt::print("\nActive database is locked.\n");
    (void)std::fflush(stdout); // main looks whether it has arrived
    for (std::string line; std::getline(std::cin, line) && line != "u";) {
    }
    if (!UnlockServiceDatabase(lock)) return ScFailed("UnlockServiceDatabase", GetLastError());
    ScDone("UnlockServiceDatabase");
    return EXIT_DONE;
}
