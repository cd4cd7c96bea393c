// SPDX-License-Identifier: MIT
// liveness: whether the process of a service that the daemon has as active is still there, as far as this machine
// knows, and having the daemon learn that it is not.
//
// The daemon notices a dead process at the next control only. What tells it before is the hint that the process has
// left (svcapi/pid_file.h): a killed one does not take it along. Looking at it touches neither daemon nor service.
#pragma once

#include "svcapi/packing.h"
#include "tvsc/session.h"

#include <sys/types.h>

#include <cstdint>

struct ProcessView {
    pid_t process = 0;         // 0: not known
    bool isGone = false;       // it was that of this service, and has ended
    std::int64_t uptimeMs = 0; // of a living one
};

// The process of a service in a state. Nothing is known of a stopped service, and of one of another machine.
[[nodiscard]] ProcessView LookAtProcess(const Options &options, const std::string &name, DWORD state);

// The start of a process (svcapi/process_stat.h) in milliseconds since the boot.
[[nodiscard]] std::int64_t MsOfTicks(std::uint64_t ticks);

// "running", "failed 1067", or "running, but process 162 is gone".
[[nodiscard]] std::string StateText(const SERVICE_STATUS &status, const ProcessView &process);

// Has the daemon learn that the process of an active service is gone, which it must be known to be: by an
// interrogation, which finds it out, or where the state does not allow one by a report in its place. The service is
// stopped then, with 1067. Returns whether it is; *status is its status afterwards.
[[nodiscard]] bool SettleGone(SC_HANDLE service, SERVICE_STATUS *status);
