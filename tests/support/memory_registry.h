// SPDX-License-Identifier: MIT
// memory_registry: a registry in memory beneath the Win32 registry functions, in place of a registry daemon.
//
// It sits in row 0 of the dispatch table, keeps every call in a list, and fails on request. Only the functions that
// the daemon uses are there; a call of any other ends the test. Names are compared without regard to case, keys are
// enumerated in the order in which they were made, a key is deleted with all below it.
// Keys are named by their path under HKEY_LOCAL_MACHINE.
#pragma once

#include "servd/servd_svc_proc/account.h"
#include "servd/servd_svc_proc/autostart.h"
#include "servd/servd_svc_proc/database.h"
#include "servd/servd_svc_proc/dependencies.h"
#include "servd/servd_svc_proc/groups.h"
#include "servd/servd_svc_proc/handlers.h"
#include "servd/servd_svc_proc/kept_names.h"
#include "servd/servd_svc_proc/load.h"
#include "servd/servd_svc_proc/start.h"
#include "servd/servd_svc_proc/startup.h"
#include "servd/servd_svc_proc/status.h"
#include "servd/servd_svc_proc/values.h"
#include "servd/service_keys.h"
#include "tests/support/value_bytes.h"
#include "tv/winerror.h"
#include "tv/winsvc.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

struct MemoryValue {
    DWORD type;
    std::string data; // any bytes

    bool operator==(const MemoryValue &) const = default;
};

// Empties the registry, the list of calls and the wished-for failures, and puts the registry into the table; takes it
// out again.
void InstallMemoryRegistry();
void RemoveMemoryRegistry();

// Writing what a test begins with, reading what it left; none of this is a call. Keys above are made as needed.
void MakeKey(const std::string &path);
void RemoveKey(const std::string &path);
bool HasKey(const std::string &path);
void SetValue(const std::string &path, const std::string &name, DWORD type, const std::string &data);
void SetText(const std::string &path, const std::string &name, const std::string &text);                // REG_SZ
void SetNumber(const std::string &path, const std::string &name, DWORD number);                         // REG_DWORD
void SetTexts(const std::string &path, const std::string &name, const std::vector<std::string> &texts); // REG_MULTI_SZ
void RemoveValue(const std::string &path, const std::string &name);
std::optional<MemoryValue> GetValue(const std::string &path, const std::string &name);

// The calls since InstallMemoryRegistry or ForgetCalls, failed ones included, in order:
//   open PATH, create PATH, close PATH, delete PATH, enum PATH INDEX,
//   size PATH VALUE (a query without buffer), query PATH VALUE, set PATH VALUE, unset PATH VALUE
// PATH stands in full; a handle that is not open shows as "?". An access mask other than KEY_ALL_ACCESS is appended,
// and so are the class of a key that is created and its options other than 0.
const std::vector<std::string> &RegistryCalls();
void ForgetCalls();
// Paths of the keys that are open now, in the order of opening.
std::vector<std::string> OpenKeys();

// Makes the n-th call from now (1 is the next) fail with this code and do nothing else.
void FailNthCall(int n, LONG code);
// Makes every call of this text fail.
void FailCalls(const std::string &call, LONG code);

// --- services ---

inline const std::string servicesPath = servicesKeyPath;
inline std::string ServicePath(const std::string &name) { return servicesPath + "\\" + name; }

// The values of a service's key; what is not set is not written.
struct ServiceValues {
    std::optional<DWORD> type = SERVICE_WIN32_OWN_PROCESS;
    std::optional<DWORD> start = {};
    std::optional<std::string> displayName = {}; // without it, the name followed by " service"
    std::optional<std::string> imagePath = {};
    std::optional<std::string> group = {};
    std::optional<DWORD> tag = {};
    std::vector<std::string> dependencies = {}; // none: no value
    std::optional<std::string> account = {};
};
void InstallService(const std::string &name, const ServiceValues &values = {});

// Frees svcdb, both lists and the lock, as before the daemon's initialisation.
void EmptyServiceDatabase();
// Index and name of every used record; and the services of a group or an image path in the order of its chain. A name
// that the list does not know gives one text that says so.
std::string ServiceNames();
std::vector<std::string> MembersOf(const GroupListEntry *list, std::int32_t size, const std::string &name);

// A test with an empty registry in memory and an empty database.
struct MemoryRegistryTest : testing::Test {
    MemoryRegistryTest() { InstallMemoryRegistry(); }
    ~MemoryRegistryTest() override {
        EmptyServiceDatabase();
        RemoveMemoryRegistry();
    }
};
