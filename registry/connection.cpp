// SPDX-License-Identifier: MIT
// connection: the connections to registry daemons, who we are to them, ping and version.
//
// Slot 0 is the local daemon, the slots from 1 on are the machines of RegConnectRegistryA in the order of connecting.
// A connection is made by the first operation that needs it; nothing is retried, a failed attempt leaves nothing
// behind.
//
// Owns:    clntArray, its entries and their client handles, g_userData.name (malloc).
// Thread:  under tvRegistryMutex.
#include "registry/connection.h"

#include "registry/operations.h"
#include "registry/parameters.h"
#include "registry/regd_clnt.h"
#include "registry/unused_state.h"
#include "rpc/dial.h"
#include "tv/winerror.h"
#include "util/ktl_host.h"
#include "util/ktl_strings.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

RegistryConnectionEntry **clntArray = nullptr;
int connectionSlots = 0;
int numConnections = 0;
int nextClientNum = 1;
int connectionTableDestroyed = 0;

regd_USER_DATA g_userData = {};
int userDataSet = 0;

namespace {

constexpr int slotsPerGrowth = 2;

int ClientNumberOf(HKEY key) { return static_cast<int>((key & clientNumberBits) >> 20); }

RegistryConnectionEntry *EntryAt(int number) { return number < connectionSlots ? clntArray[number] : nullptr; }

// Returns malloc memory. libc writes the whole name into cuserid's buffer, however small L_cuserid is.
char *LoginName(uid_t uid) {
    char name[1024] = "";
    if (cuserid(name) != nullptr && name[0] != '\0') return _ktl_strdup(name);
    const char *user = std::getenv("USER");
    if (user != nullptr) return _ktl_strdup(user);
    if (uid == 0) return _ktl_strdup("root");
    (void)std::snprintf(name, sizeof name, "uid%d", static_cast<int>(uid));
    return _ktl_strdup(name);
}

// False when out of memory; the next connection tries again.
bool FillUserData() {
    const uid_t uid = getuid();
    g_userData = {tarvoVersion, uid, LoginName(uid), _ktl_gethostid()};
    userDataSet = g_userData.name != nullptr ? 1 : 0;
    return userDataSet != 0;
}

bool IsAddress(const char *host) {
    in_addr address;
    return inet_pton(AF_INET, host, &address) == 1;
}

// Dials the short name, then the whole one. An address has no short form: its first number would be another address.
// Deliberate: program number and local permission are not consulted; every connection goes to the system's number.
CLIENT *DialDaemon(const char *host) {
    char fullName[registryHostBytes] = "";
    if (host != nullptr) CopyHostName(fullName, host);
    tvGenRegistryONCAddr(fullName, nullptr, nullptr, nullptr);
    char shortName[registryHostBytes];
    CopyHostName(shortName, fullName);
    if (!IsAddress(shortName)) tvGetPartialName(shortName);
    tvSetRegistryDaemonParamsEx(nullptr);

    if (bAllowSystemDaemonConnect == 0) return nullptr;
    CLIENT *client = DialHost(shortName, REGDAEMONPROG, REGDAEMONVERS);
    return client != nullptr ? client : DialHost(fullName, REGDAEMONPROG, REGDAEMONVERS);
}

bool ShakeHands(CLIENT *client) {
    regd_REG_QUERY_VERSION argument = {g_userData};
    regd_REG_QUERY_VERSION_RES *reply = reg_query_version_2(&argument, client);
    if (reply == nullptr) return false;
    const bool accepted = tvVerifyRegistryVersion(reply->body.major, reply->body.minor, reply->body.patch) >= 0;
    FreeRecord(reply);
    return accepted;
}

// Reaches a daemon and makes sure that it is new enough. Returns null after noting why not.
CLIENT *OpenConnection(const char *host) {
    RpcClient client(DialDaemon(host));
    if (client == nullptr) {
        connectFailMsg = 1;
        return nullptr;
    }
    if (!ShakeHands(client.get())) {
        wrongVersionMsg = 1;
        return nullptr;
    }
    return client.release();
}

bool GrowTable() {
    using Slot = RegistryConnectionEntry *;
    const std::size_t slots = static_cast<std::size_t>(connectionSlots) + slotsPerGrowth;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): pointers are what the array holds
    Slot *grown = static_cast<Slot *>(std::realloc(clntArray, slots * sizeof(Slot)));
    if (grown == nullptr) return false;
    clntArray = grown;
    for (int i = 0; i < slotsPerGrowth; ++i) {
        clntArray[connectionSlots++] = nullptr;
    }
    return true;
}

// A new entry for a host; null when out of memory.
RegistryConnectionEntry *NewEntry(const char *host) {
    auto *entry = static_cast<RegistryConnectionEntry *>(std::calloc(1, sizeof(RegistryConnectionEntry)));
    char *name = _ktl_strdup(host);
    if (entry != nullptr && (name != nullptr || host == nullptr)) {
        entry->hostName = name;
        return entry;
    }
    std::free(name);
    std::free(entry);
    return nullptr;
}

// Takes the slot of a new connection. A key whose slot is free names the local daemon, which may have its slot already.
// Returns the slot's number, -1 when out of memory.
int TakeSlot(const char *host) {
    const int number = host == nullptr ? 0 : nextClientNum;
    while (number >= connectionSlots) {
        if (!GrowTable()) return -1;
    }
    if (clntArray[number] == nullptr) {
        clntArray[number] = NewEntry(host);
        if (clntArray[number] == nullptr) return -1;
        ++numConnections;
        if (host != nullptr) ++nextClientNum;
    }
    return number;
}

// Returns the number that the machine's connection has, or would get. Deliberate: nothing checks that it fits into the
// eight bits of a key; the number after 255 is the local daemon's.
int NumberOfMachine(const char *machineName) {
    for (int number = 1; number < connectionSlots; ++number) {
        const RegistryConnectionEntry *entry = clntArray[number];
        if (entry != nullptr && std::strcmp(entry->hostName, machineName) == 0) return number;
    }
    return nextClientNum;
}

CLIENT *LocalClient() {
    const RegistryConnectionEntry *local = EntryAt(0);
    return local != nullptr ? local->client : nullptr;
}

} // namespace

void CloseConnection(RegistryConnectionEntry *entry) {
    if (entry->client != nullptr) clnt_destroy(entry->client);
    entry->client = nullptr;
}

void ForgetConnections() {
    clntArray = nullptr;
    connectionSlots = 0;
    numConnections = 0;
    nextClientNum = 1;
}

CLIENT *tvConnectRegistryDaemon(const char *host, HKEY *key, int *clientNum) {
    if (connectionTableDestroyed != 0) {
        destructorMsg = 1;
        return nullptr;
    }
    if (userDataSet == 0 && !FillUserData()) return nullptr;

    int number = ClientNumberOf(*key);
    *key &= ~clientNumberBits;
    const RegistryConnectionEntry *entry = EntryAt(number);
    if (entry == nullptr || entry->client == nullptr) {
        RpcClient client(OpenConnection(entry != nullptr ? entry->hostName : host));
        if (client == nullptr) return nullptr;
        if (entry == nullptr) number = TakeSlot(host);
        if (number < 0) return nullptr;
        CloseConnection(clntArray[number]);
        clntArray[number]->client = client.release();
        (void)reg_ping_daemon(0); // an announcement; the daemon may not care
    }
    *clientNum = number;
    return clntArray[number]->client; // null when the ping broke it
}

void DropConnectionIfBroken(int clientNum) {
    rpc_err error = {};
    clnt_geterr(clntArray[clientNum]->client, &error);
    if (error.re_status == RPC_CANTSEND || error.re_status == RPC_CANTRECV) CloseConnection(clntArray[clientNum]);
}

// A machine name is taken as given: no leading backslashes are removed, and only the host's own name as a whole is
// the local daemon.
LONG reg_connect_registry_a(LPCSTR lpMachineName, HKEY hKey, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    if (lpMachineName != nullptr && lpMachineName[0] == '\0') return ERROR_REGISTRY_IO_FAILED;
    char localName[registryHostBytes] = "";
    (void)gethostname(localName, sizeof localName - 1);
    const bool remote = lpMachineName != nullptr && std::strcmp(lpMachineName, localName) != 0;

    int number = remote ? NumberOfMachine(lpMachineName) : 0;
    HKEY key = WithClientNumber(hKey & ~clientNumberBits, number);
    if (tvConnectRegistryDaemon(remote ? lpMachineName : nullptr, &key, &number) == nullptr) {
        return ERROR_REGISTRY_IO_FAILED;
    }
    *phkResult = WithClientNumber(key, number);
    return ERROR_SUCCESS;
}

// Deliberate: the wide form connects nothing.
LONG reg_connect_registry_w(LPCWSTR, HKEY, PHKEY) { return ERROR_FILE_NOT_FOUND; }

LONG reg_ping_daemon(int mode) {
    if (EntryAt(0) == nullptr) return ERROR_REGISTRY_IO_FAILED;
    const LONG silent = mode == 2 ? -1 : ERROR_REGISTRY_IO_FAILED; // also while the slot waits to be connected again
    CLIENT *client = LocalClient();
    if (client == nullptr) return silent;
    regd_REG_PING_DAEMON argument = {g_userData, static_cast<std::uint32_t>(tarvo_getpid()),
                                     static_cast<std::uint32_t>(mode)};
    argument.user.uid = getuid(); // may have changed since we connected
    regd_BASIC_RES *reply = reg_ping_daemon_2(&argument, client);
    if (reply == nullptr) {
        DropConnectionIfBroken(0);
        return silent;
    }
    const LONG status = static_cast<LONG>(reply->body.status);
    FreeRecord(reply);
    return status;
}

LONG reg_query_version_info(LPDWORD major, LPDWORD minor, LPDWORD patch) {
    CLIENT *client = LocalClient();
    if (client == nullptr) return ERROR_REGISTRY_IO_FAILED;
    regd_REG_QUERY_VERSION argument = {g_userData};
    regd_REG_QUERY_VERSION_RES *reply = reg_query_version_2(&argument, client);
    if (reply == nullptr) {
        DropConnectionIfBroken(0);
        return ERROR_REGISTRY_IO_FAILED;
    }
    if (major != nullptr) *major = reply->body.major;
    if (minor != nullptr) *minor = reply->body.minor;
    if (patch != nullptr) *patch = reply->body.patch;
    const LONG status = static_cast<LONG>(reply->body.status);
    FreeRecord(reply);
    return status;
}
