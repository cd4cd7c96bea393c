// SPDX-License-Identifier: MIT
// compare: differences as people and programs see them.
#pragma once

#include "tvreg/differences.h"
#include "tvreg/output.h"

// The state that a .reg file comes to in an empty registry. Throws a Failure.
std::vector<RegKey> KeysOfFile(const std::string &file);

// A line for each, behind the line of its key: - for what is before, + for what is after.
void PrintDifferences(const std::vector<Difference> &differences, const KeyPath &top);

// Members kind (added, removed, changed, same), key, and for values before and after.
Json DifferenceJson(const Difference &difference, const KeyPath &top);
Json DifferencesJson(const char *schema, const std::vector<Difference> &differences, const KeyPath &top);
