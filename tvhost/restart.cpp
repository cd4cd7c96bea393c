// SPDX-License-Identifier: MIT
// restart: the two ways of deciding.
#include "tvhost/restart.h"

#include <algorithm>

namespace {

// The delay doubles with each restart in a row.
DWORD DelayOf(const HostParameters &parameters, DWORD inARow) {
    std::uint64_t delayMs = parameters.restartDelayMs;
    for (DWORD restart = 0; restart < inARow && delayMs < parameters.longestRestartDelayMs; ++restart) {
        delayMs *= 2;
    }
    return static_cast<DWORD>(std::min<std::uint64_t>(delayMs, parameters.longestRestartDelayMs));
}

RestartDecision DecideByParameters(const HostParameters &parameters, bool failed, std::uint64_t ranMs,
                                   RestartHistory *history) {
    if (parameters.restart == RestartWhen::never) return {};
    if (parameters.restart == RestartWhen::onFailure && !failed) return {};
    if (ranMs >= parameters.goodRunMs) history->inARow = 0;
    if (parameters.restartBurst != 0 && history->inARow >= parameters.restartBurst) {
        return {AfterEnd::giveUp, 0,
                "started " + std::to_string(history->inARow) + " times again without a run of " +
                    std::to_string(parameters.goodRunMs) + " ms"};
    }
    const DWORD delayMs = DelayOf(parameters, history->inARow);
    ++history->inARow;
    ++history->restarts;
    return {AfterEnd::restart, delayMs, ""};
}

RestartDecision DecideByKey(const FailureActions &failureActions, bool failed, std::uint64_t ranMs,
                            RestartHistory *history) {
    if (failureActions.actions.empty() || !failed) return {};
    if (failureActions.resetSec != unlimited && ranMs >= std::uint64_t{failureActions.resetSec} * 1000) {
        history->inARow = 0;
    }
    const std::size_t last = failureActions.actions.size() - 1;
    const FailureAction &action = failureActions.actions[std::min<std::size_t>(history->inARow, last)];
    ++history->inARow;
    switch (action.kind) {
    case FailureActionKind::restart:
        ++history->restarts;
        return {AfterEnd::restart, std::min(action.delayMs, longestTimeoutMs), ""};
    case FailureActionKind::runCommand: return {AfterEnd::runCommand, 0, ""};
    case FailureActionKind::reboot:
        return {AfterEnd::stop, 0, "its failure action would restart the machine: not done"};
    default: return {};
    }
}

} // namespace

RestartDecision DecideAfterEnd(const HostParameters &parameters, const FailureActions &failureActions, bool failed,
                               std::uint64_t ranMs, RestartHistory *history) {
    return parameters.restart == RestartWhen::asTheKeySays ? DecideByKey(failureActions, failed, ranMs, history)
                                                           : DecideByParameters(parameters, failed, ranMs, history);
}
