// SPDX-License-Identifier: MIT
// registry_writing: keys and values into the registry, many requests on their way at once.
#pragma once

#include "tvreg/registry_access.h"

#include <functional>

// What the registry did not take.
struct Refusal {
    const RegKey *key;     // of those given
    const RegValue *value; // null: the key itself
    LONG code;             // Win32
};

// "KEY, value "v": 5 ERROR_ACCESS_DENIED: ..."
std::string RefusalText(const Refusal &refusal);

// Called from time to time with the number of values that are done.
using Progress = std::function<void(std::size_t)>;

// Makes the keys, sets and deletes their values, deletes the keys marked so, in the order given. What is to be deleted
// may be missing. Returns all that was refused; without a connection it ends at once. A daemon that does not take many
// requests at once gets them one by one.
std::vector<Refusal> WriteKeys(const std::vector<RegKey> &keys, const Progress &progress = {});

// The same; throws a Failure that tells the first refusal.
void MustWriteKeys(const std::vector<RegKey> &keys);
