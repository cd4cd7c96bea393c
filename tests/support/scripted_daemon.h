// SPDX-License-Identifier: MIT
// scripted_daemon: a stand-in for servd that answers as a test tells it and notes what it is asked.
//
// It serves program 0x40000000 version 1 of this host from a thread of the test process. One at a time. A procedure
// without a script answers that it is unavailable.
#pragma once

#include "tests/support/records.h"

#include <cstdint>
#include <functional>
#include <vector>

// Starts it; Stop unregisters it and breaks its connections. Scripts stay.
void StartScriptedDaemon();
void StopScriptedDaemon();

// Removes all scripts and what was noted.
void ForgetScripts();

// While it starts a process, the daemon answers nobody. With true the null procedure stays unanswered; what has a
// script is answered all the same.
void SetStarting(bool starting);

// The numbers of the procedures called, in order.
std::vector<std::uint32_t> ProceduresCalled();

using ScriptedAnswer = std::function<void(SVCXPRT *)>;
void SetScript(std::uint32_t procedure, ScriptedAnswer answer);

// Answers `procedure` with what the script returns for its argument. Runs on the daemon's thread. What the result
// points at is borrowed.
template <typename Argument, typename Result>
void OnCall(std::uint32_t procedure, std::function<Result(Argument &)> script) {
    SetScript(procedure, [script](SVCXPRT *transport) {
        Decoded<Argument> argument;
        if (!svc_getargs(transport, reinterpret_cast<xdrproc_t>(routineOf<Argument>),
                         reinterpret_cast<caddr_t>(&*argument))) {
            svcerr_decode(transport);
            return;
        }
        Result result = script(*argument);
        (void)svc_sendreply(transport, reinterpret_cast<xdrproc_t>(routineOf<Result>), &result);
    });
}
