// SPDX-License-Identifier: MIT
// registry_faults: what the daemon asks of its registry, and answers that fail on request.
//
// Brought by the test program with the way to the daemon (procedures.h). Calls are shown as
//   open PATH, create PATH, close PATH, delete PATH, enum PATH INDEX,
//   size PATH VALUE (a query without buffer), query PATH VALUE, set PATH VALUE, unset PATH VALUE
// with the path below HKEY_LOCAL_MACHINE; "?" stands for a key that is not open.
#pragma once

#include "tv/winreg.h"

#include <cstddef>
#include <string>
#include <vector>

// To be called before StartDaemon, once the registry has been cleared.
void WatchRegistry();
// Forgets the calls so far and the failures still to come.
void ForgetRegistryCalls();
std::vector<std::string> RegistryCallsMade();
// Makes the n-th call from now (1 is the next) fail with this code and do nothing else. A real registry shows
// ERROR_REGISTRY_IO_FAILED by breaking the connection off.
void FailRegistryCall(int n, LONG code);
// Makes every call that is shown so fail, until the calls are forgotten. With a daemon of its own process only.
void FailRegistryCallsLike(const std::string &call, LONG code);
// How many keys the daemon has open.
std::size_t KeysOpen();
