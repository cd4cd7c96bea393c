// SPDX-License-Identifier: MIT
// registry_access: the Win32 functions with each call checked; for a few keys or one value. The rest:
// registry_reading.h, registry_writing.h.
#pragma once

#include "tvreg/reg_text.h"

#include <stdexcept>
#include <string>
#include <vector>

// A call that the registry refused, or an argument that cannot be right.
struct Failure : std::runtime_error {
    Failure(int exitStatus, const std::string &text, std::uint32_t win32 = 0, std::vector<std::string> similar = {})
        : std::runtime_error(text), status(exitStatus), code(win32), meant(std::move(similar)) {}
    int status;                     // what to exit with
    std::uint32_t code;             // the registry's; 0 where it was not asked
    std::vector<std::string> meant; // in the place of a word that means nothing; for a key or value found later
};

// Exit statuses.
enum : int {
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NOT_FOUND = 5,
    EXIT_BAD_TEXT = 6,
    EXIT_UNREACHABLE = 150,
    EXIT_TIMED_OUT = 151
};

// "5 ERROR_ACCESS_DENIED: access denied", and the status to exit with.
std::string CodeText(LONG code);
int StatusOf(LONG code);

// Throws a Failure that says what was tried and names the Win32 code; nothing for 0.
void Check(LONG code, const std::string &what);

HKEY RootOf(const KeyPath &key);  // on the key's machine
HKEY OpenKey(const KeyPath &key); // to be closed by the caller
bool KeyExists(const KeyPath &key);
RegValue ReadValue(const KeyPath &key, const std::string &name);

void DeleteKey(const KeyPath &key);
void DeleteValue(const KeyPath &key, const std::string &name);
