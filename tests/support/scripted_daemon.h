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

template <typename Result, typename Argument>
void SetTypedScript(const std::function<Result(Argument &)> &script) {
    static_assert(std::is_same_v<Result, ResultOf<Argument>>);
    SetScript(ProcedureOf<Argument>::number,
              [script](SVCXPRT *transport) { AnswerProcedure<Argument>(transport, script); });
}

// Answers the procedure that takes the argument of the script with what the script returns. Runs on the daemon's
// thread. What the result points at is borrowed.
template <typename Script>
void OnCall(Script script) {
    SetTypedScript(std::function(script));
}
