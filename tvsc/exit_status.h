// SPDX-License-Identifier: MIT
// exit_status: what tvsc exits with.
//
// As LSB has it: 0 to 7, then 150 and up for this program's own.
#pragma once

#include "tv/wintypes.h"

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NOT_SUPPORTED = 3,
    EXIT_UNKNOWN_SERVICE = 5,
    EXIT_NOT_CONFIGURED = 6,
    EXIT_NOT_RUNNING = 7,
    EXIT_UNREACHABLE = 150,
    EXIT_TIMED_OUT = 151,
    EXIT_LOCKED = 152,
    EXIT_DEPENDENCY = 153,
    EXIT_DELETE_PENDING = 154,
    EXIT_EXISTS = 155,
    EXIT_INTERRUPTED = 130,
};

// Of status, is-active and is-failed.
enum StatusExit : int { STATUS_RUNNING = 0, STATUS_DEAD = 1, STATUS_STOPPED = 3, STATUS_UNKNOWN = 4 };

// That of an action which ended with a Win32 code.
[[nodiscard]] int ExitStatusOf(DWORD code);
