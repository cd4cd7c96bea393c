// SPDX-License-Identifier: MIT
// seeds: values that some keys have from the beginning.
//
// Programs register their event sources below Services\EventLog, and make that key with it. To the service daemon it is
// then a service whose values are missing, for which it would load no service at all when it starts next. So the key
// gets the values of a service that loads, is never started, and that the daemon's enumeration does not list.
#pragma once

#include "tvregd/tree.h"

// The values that a key with its name and parents should have and has not.
[[nodiscard]] std::vector<Value> MissingSeeds(const Key &key);

// The path of the one key that should have some, below HKEY_LOCAL_MACHINE.
[[nodiscard]] std::string SeededKeyPath();
