// SPDX-License-Identifier: MIT
// status_watch: notes and their judgement.
#include "svcapi/status_watch.h"

#include "servd/limits.h"

#include <cstring>

namespace {

using std::chrono::milliseconds;

constexpr auto grace = milliseconds(1000);        // beyond an announced wait
constexpr auto silentStart = milliseconds(30000); // what a service has until its first report
// For how long words that only the daemon's own query tells are taken for true while the state stays the same: less
// than somebody needs to stop a service and start it again, and enough that a client in a tight loop seldom asks.
constexpr auto wordsLast = milliseconds(1000);

bool SameWords(const SERVICE_STATUS &a, const SERVICE_STATUS &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

bool SameState(const SERVICE_STATUS &a, const SERVICE_STATUS &b) {
    return a.dwCurrentState == b.dwCurrentState && a.dwControlsAccepted == b.dwControlsAccepted;
}

// The words last told still stand for a state that alone was seen.
bool HoldFor(const StatusWatch &watch, const SERVICE_STATUS &state, CallClock::time_point now) {
    const bool mayNotAsk = watch.isControlAnswer && watch.status.dwWaitHint != 0;
    return watch.any && watch.complete && SameState(watch.status, state) &&
           (mayNotAsk || now - watch.learned <= wordsLast);
}

void Note(StatusWatch *watch, const SERVICE_STATUS &status, bool complete, CallClock::time_point now) {
    const bool same = watch->any && watch->complete == complete && SameWords(watch->status, status);
    if (!same) {
        watch->changedAfter = watch->any ? watch->seen : CallClock::time_point();
        watch->unchangedSince = now;
        watch->isControlAnswer = false;
    }
    watch->any = true;
    watch->status = status;
    watch->complete = complete;
    watch->seen = now;
}

// Since an action of our own the status is known to be what the action left.
void NoteOwn(StatusWatch *watch, const SERVICE_STATUS &status, CallClock::time_point now) {
    *watch = {};
    watch->any = watch->complete = true;
    watch->status = status;
    watch->seen = watch->learned = watch->changedAfter = watch->unchangedSince = now;
}

} // namespace

bool IsAsStarted(const SERVICE_STATUS &status) {
    const SERVICE_STATUS started = {status.dwServiceType, SERVICE_START_PENDING, 0, 0, 0, 0, startWaitHintMs};
    return SameWords(status, started);
}

void NoteLook(StatusWatch *watch, const SERVICE_STATUS &status, bool complete, CallClock::time_point now) {
    if (complete) watch->learned = now;
    if (!complete && HoldFor(*watch, status, now)) {
        Note(watch, SERVICE_STATUS(watch->status), true, now);
    } else {
        Note(watch, status, complete, now);
    }
}

void NoteStart(StatusWatch *watch, CallClock::time_point now) {
    NoteOwn(watch, {0, SERVICE_START_PENDING, 0, 0, 0, 0, startWaitHintMs}, now);
}

void NoteControlAnswer(StatusWatch *watch, const SERVICE_STATUS &status, CallClock::time_point now) {
    NoteOwn(watch, status, now);
    watch->isControlAnswer = true;
}

bool IsAskingUseful(const StatusWatch &watch, CallClock::time_point now) {
    const SERVICE_STATUS &status = watch.status;
    const auto unchanged = now - watch.unchangedSince;
    const bool maybeStarted =
        !watch.complete && status.dwCurrentState == SERVICE_START_PENDING && status.dwControlsAccepted == 0;
    if (maybeStarted || IsAsStarted(status)) return unchanged > silentStart + grace;
    if (!watch.complete) return true;
    if (status.dwWaitHint == 0) return false;
    const milliseconds announced(status.dwWaitHint);
    return watch.isControlAnswer ? unchanged > announced + grace : now - watch.changedAfter >= announced;
}
