// SPDX-License-Identifier: MIT
// udp_service: serving over UDP beside TCP.
#pragma once

// Registers the daemon's program over both and serves. Called by nobody: the daemon is reached over TCP only, and its
// name says so to whoever is about to call it. Builds no database. Ends the process with status 1 when something fails.
[[noreturn]] void tarvo_nevercallthisfunction();
