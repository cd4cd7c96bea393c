// SPDX-License-Identifier: MIT
// registry_access: whole keys read from and written to the registry through the Win32 functions.
#pragma once

#include "tvreg/reg_text.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// A call that the registry refused, or an argument that cannot be right.
struct Failure : std::runtime_error {
    Failure(int exitStatus, const std::string &text) : std::runtime_error(text), status(exitStatus) {}
    int status; // what to exit with
};

// Exit statuses.
enum : int { EXIT_FAILED = 1, EXIT_USAGE = 2, EXIT_NOT_FOUND = 5, EXIT_BAD_TEXT = 6, EXIT_UNREACHABLE = 150 };

// Throws a Failure that says what was tried and names the Win32 code; nothing for 0.
void Check(LONG code, const std::string &what);

struct KeyContent {
    std::vector<RegValue> values; // in the registry's order
    std::vector<std::string> subKeys;
};

bool KeyExists(const KeyPath &key);
KeyContent ReadKey(const KeyPath &key);
RegValue ReadValue(const KeyPath &key, const std::string &name);

// A key and everything below it, each key before its subkeys, in the registry's order.
void ForEachKey(const KeyPath &key, const std::function<void(const KeyPath &, KeyContent &)> &use);
std::vector<RegKey> ReadKeys(const KeyPath &key);

// Makes the keys, sets and deletes their values, deletes the keys marked so, in the order given. What is to be deleted
// may be missing.
void WriteKeys(const std::vector<RegKey> &keys);

void DeleteKey(const KeyPath &key);
void DeleteValue(const KeyPath &key, const std::string &name);
