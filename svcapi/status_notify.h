// SPDX-License-Identifier: MIT
// status_notify: what NotifyServiceStatusChange leaves behind when a handle is closed.
#pragma once

#include "tv/winsvc.h"

// Forgets what was asked through a service's handle. A callback that runs for it on another thread has returned then.
void EndNotifications(SC_HANDLE service);
