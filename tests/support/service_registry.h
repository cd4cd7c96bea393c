// SPDX-License-Identifier: MIT
// service_registry: what the registry holds of the services, as a test writes it down and compares it.
//
// Everything goes through the Reg* functions, so the same test looks into a registry in memory and into a real one.
#pragma once

#include "tv/winreg.h"

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

struct Value {
    DWORD type;
    std::string bytes;
    bool operator==(const Value &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Value &value);

using Values = std::map<std::string, Value>;

Value AsNumber(DWORD number);
Value AsText(const std::string &text); // its terminator counted
Value AsMulti(const std::vector<std::string> &strings);
Value AsBinary(const std::string &bytes);
// 32-bit numbers in the machine's order, one after the other.
std::string Words(const std::vector<DWORD> &words);

// Paths are below HKEY_LOCAL_MACHINE.
std::string KeyPath(const std::string &service);
std::string TagOrderPath();

// Creates the key where it is missing and sets the values.
void PutKey(const std::string &path, const Values &values);
bool HasKeyAt(const std::string &path);
void DropKey(const std::string &path, const std::string &name); // the subkey `name` of the key `path`
// Every value of a key; empty where there is no key.
Values ValuesOf(const std::string &path);
// Every service's key.
std::map<std::string, Values> ServicesInRegistry();

// The values without which no database loads, and more.
Values LoadableValues(const std::string &displayName, Values more = {}, DWORD serviceType = 0x10);
// Puts a service into the registry, for the next daemon to load.
void PutService(const std::string &name, const std::string &displayName, Values more = {}, DWORD serviceType = 0x10);
