// SPDX-License-Identifier: MIT
// signals: finding the process of a service that is meant, and signalling no other one.
#include "tvsc/signals.h"

#include "svcapi/process_stat.h"
#include "tvhost/program.h"
#include "tvsc/foresight.h"
#include "tvsc/report.h"
#include "tvsc/service_view.h"

#include <fmt/format.h>
#include <signal.h>

#include <cerrno>

namespace {

constexpr DWORD reloadControl = 128; // as tvhost takes it

// The program of a service: what tvhost runs for it, else its own process; 0 when none is known.
pid_t ProgramOf(const ServiceView &view) {
    const std::optional<HostedView> hosted = ReadHosted(view.service.name);
    if (hosted && hosted->programLives) return hosted->state.program;
    return view.process.isGone ? 0 : view.process.process;
}

void Signal(Session &session, const ServiceView &view, const std::string &word, int signal) {
    const std::string &name = view.service.name;
    const pid_t process = ProgramOf(view);
    if (process == 0) {
        Failed(session, name, "kill", ERROR_SERVICE_NOT_ACTIVE, "no process of it is known here");
    } else if (session.options.dryRun) {
        Done(session, name, "kill", fmt::format("would send {} to process {}", word, process));
    } else if (kill(process, 0) != 0) {
        Failed(session, name, "kill", errno == EPERM ? ERROR_ACCESS_DENIED : ERROR_SERVICE_NOT_ACTIVE);
    } else {
        SignalProcess({process, StartOfProcess(process), false}, signal);
        Done(session, name, "kill", fmt::format("sent {} to process {}", word, process));
    }
}

void Reload(Session &session, const ServiceView &view) {
    const std::string &name = view.service.name;
    const std::optional<HostedView> hosted = ReadHosted(name);
    const bool isHosted = hosted && hosted->hostLives && IsAlive(view);
    if (!isHosted) {
        const bool isActive = view.service.status.dwCurrentState != SERVICE_STOPPED;
        Failed(session, name, "reload", isActive ? ERROR_INVALID_SERVICE_CONTROL : ERROR_SERVICE_NOT_ACTIVE,
               "tvhost does not run it: its own controls tell it (tvsc control)");
        return;
    }
    const ServiceHandle service(OpenServiceA(session.manager.get(), name.c_str(), SERVICE_USER_DEFINED_CONTROL));
    SERVICE_STATUS status = {};
    if (service != nullptr && session.options.dryRun) {
        const DWORD refusal = ForeseeControl(session.options, service.get(), name, reloadControl);
        if (refusal != ERROR_SUCCESS) return Failed(session, name, "reload", refusal);
        return Done(session, name, "reload", "would have it read its configuration again");
    }
    if (service == nullptr || !ControlService(service.get(), reloadControl, &status)) {
        Failed(session, name, "reload", GetLastError());
    } else {
        Done(session, name, "reload", "reloaded");
    }
}

bool IsHere(Session &session, const std::string &action) {
    if (IsThisMachine(session.options)) return true;
    Failed(session, session.options.host, action, ERROR_NOT_SUPPORTED, "processes of another machine are out of reach");
    return false;
}

} // namespace

int RunKill(Session &session, const std::string &word, const std::vector<std::string> &names) {
    const int signal = SignalOf(word);
    if (signal == 0) {
        Failed(session, word, "kill", ERROR_INVALID_PARAMETER, "no such signal");
        session.results.back().exitStatus = EXIT_USAGE;
        return Finish(session);
    }
    if (!IsHere(session, "kill")) return Finish(session);
    for (const ServiceView &view : ViewsOf(session, names, "kill")) {
        Signal(session, view, word, signal);
    }
    return Finish(session);
}

int RunReload(Session &session, const std::vector<std::string> &names) {
    if (!IsHere(session, "reload")) return Finish(session);
    for (const ServiceView &view : ViewsOf(session, names, "reload")) {
        Reload(session, view);
    }
    return Finish(session);
}
