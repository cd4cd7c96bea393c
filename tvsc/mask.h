// SPDX-License-Identifier: MIT
// mask: services that nobody can start: no client, no service that needs them, not the daemon with itself.
//
// The daemon starts a disabled service like any other: keeping clients from it is theirs, and none of them is asked
// when another service needs it at boot. But it reads the account anew at each start, and no process runs under an
// account that it does not find: such a start answers 3 at once. So a masked service has, in the registry, an account
// that no machine can have, for no user's name has a colon in it; the account that it had stands behind that.
// Everything else of the service stays, its start type too. Only a service of a shared process is beyond that: the
// daemon hands its start to a process that is there already.
#pragma once

#include "tvsc/account_mask.h"
#include "tvsc/session.h"

// Each returns the exit status.
int RunMask(Session &session, const std::vector<std::string> &names);
int RunUnmask(Session &session, const std::vector<std::string> &names);
