// SPDX-License-Identifier: MIT
// status_watch: when the daemon may be asked for a service's status without hurting the service.
//
// The daemon's own query applies its deadline: it declares a service dead whose announced wait has passed, and that is
// how a dead service is noticed. But the deadline is renewed by the service's reports only. A start and a control
// announce waits without one, which a query then measures by a deadline long gone: it declares services dead that are
// coming up. So a client first looks without touching (listing.h), keeps what it saw, and asks only where
//   - the words are not those that a start leaves behind, and not those that a control was answered with, or have stood
//     there long enough that the service has to be taken for dead;
//   - and asking can tell more than the look did: a wait is announced, and may have passed.
// What the look cannot see, another client's start or control between two looks, asking so seldom makes most unlikely.
#pragma once

#include "svcapi/link.h"

struct StatusWatch {
    bool any = false;           // whether there was a look since the daemon's start; what follows is meaningless before
    SERVICE_STATUS status = {}; // as seen last
    bool complete = false;      // all of its words are known, else state and accepted controls only
    bool isControlAnswer = false;  // they are those of a control's answer
    CallClock::time_point seen;    // when it was looked at last
    CallClock::time_point learned; // when the words were told last, not only the state
    CallClock::time_point
        changedAfter; // the last look at which the status was another one; the epoch when there is none
    CallClock::time_point unchangedSince; // the first of the looks that have found it so
};

// Whether these are the words that a start leaves behind, until the service's first report.
[[nodiscard]] bool IsAsStarted(const SERVICE_STATUS &status);

// Takes note of what was seen, which in case of an incomplete look are state and accepted controls.
void NoteLook(StatusWatch *watch, const SERVICE_STATUS &status, bool complete, CallClock::time_point now);
// Takes note of what a successful start or control has made of the status.
void NoteStart(StatusWatch *watch, CallClock::time_point now);
void NoteControlAnswer(StatusWatch *watch, const SERVICE_STATUS &status, CallClock::time_point now);

// Whether the daemon's own query would tell more than was seen, and do no harm.
[[nodiscard]] bool IsAskingUseful(const StatusWatch &watch, CallClock::time_point now);
