// SPDX-License-Identifier: MIT
// control_rules: which controls the daemon hands on to a service, by the state and the accepted controls that it has
// last reported; for the daemon, and for whoever tells beforehand what it would answer.
#pragma once

#include "servd/win32_code.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <cstdint>

// Whether a service may be sent it at all: the four controls of Win32 from stop to interrogate, and those whose meaning
// is the service's own.
[[nodiscard]] inline bool IsControlCode(std::int32_t control) {
    return (control >= SERVICE_CONTROL_STOP && control <= SERVICE_CONTROL_INTERROGATE) ||
           (control >= 128 && control <= 255);
}

// What stands against sending this control to a service in this state: 1052, 1061 or 1062; 0 when nothing does. The
// first rule decides.
[[nodiscard]] inline Win32Code RefusalOfControl(std::int32_t state, std::int32_t accepted, std::int32_t control) {
    if (state == SERVICE_STOPPED) return ERROR_SERVICE_NOT_ACTIVE;              // 1062
    if (!IsControlCode(control)) return ERROR_INVALID_SERVICE_CONTROL;          // 1052
    if (state == SERVICE_STOP_PENDING) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL; // 1061
    if (state == SERVICE_START_PENDING && control != SERVICE_CONTROL_STOP) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (control == SERVICE_CONTROL_STOP && (accepted & SERVICE_ACCEPT_STOP) == 0) return ERROR_INVALID_SERVICE_CONTROL;
    const bool pauses = control == SERVICE_CONTROL_PAUSE || control == SERVICE_CONTROL_CONTINUE;
    if (pauses && (accepted & SERVICE_ACCEPT_PAUSE_CONTINUE) == 0) return ERROR_INVALID_SERVICE_CONTROL;
    return ERROR_SUCCESS;
}
