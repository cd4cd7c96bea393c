// SPDX-License-Identifier: MIT
// registry_fixture: a fresh registry client, and DialHost in the place of the real one.
#include "tests/support/registry_fixture.h"

#include "rpc/dial.h"
#include "util/ktl_strings.h"

#include <cstdlib>

DialPlan dialPlan;

CLIENT *DialHost(const char *host, std::uint32_t program, std::uint32_t version) {
    dialPlan.dialled.push_back(std::string(host) + " " + std::to_string(program) + " " + std::to_string(version));
    const auto found = dialPlan.hosts.find(host);
    return found != dialPlan.hosts.end() ? MakeScriptedClient(found->second) : nullptr;
}

static void EmptyTable() {
    for (int number = 0; number < connectionSlots; ++number) {
        if (clntArray[number] == nullptr) continue;
        std::free(clntArray[number]->hostName);
        if (clntArray[number]->client != nullptr) clnt_destroy(clntArray[number]->client);
    }
    tvRegistryInitData();
}

FreshRegistryTest::FreshRegistryTest() {
    EmptyTable();
    dialPlan = {};
    TIMEOUT = {25, 0};
    std::free(g_userData.name);
    g_userData = {};
    userDataSet = 0;
    destructorMsg = wrongVersionMsg = connectFailMsg = 0;
    std::free(regdLocation);
    std::free(regdExecLocation);
    regdLocation = regdExecLocation = nullptr;
    regdKeepBackup = 1;
    regdFlushInterval = regdLogLines = regdPingCheckInterval = regdVerbose = regdSystemDaemon = 0;
    regdSems = regdSemaphoreProc = regdSemaphoreAccess = 0;
    bAllowSystemDaemonConnect = bAllowLocalDaemonConnect = 1;
    tvreg_prognum = 0;
    pid_init = 0;
    bCached = 0;
    for (const char *name : {"TARVO_REGISTRY_HOST", "TARVO_REGISTRY_BASE", "TARVO_REGISTRY_PARAMS"}) {
        (void)unsetenv(name);
    }
}

FreshRegistryTest::~FreshRegistryTest() { EmptyTable(); }

RegistryTest::RegistryTest() : daemon(NewScript()) {
    g_userData = {tarvoVersion, 1000, _ktl_strdup("ann"), 0x0A0B0C0D};
    userDataSet = 1;
    Connect(0, &daemon);
}

void RegistryTest::ExpectOneCall(std::uint32_t procedure, const std::string &hexArgument) const {
    ASSERT_EQ(daemon.calls.size(), 1u);
    EXPECT_EQ(daemon.calls[0].procedure, procedure);
    EXPECT_EQ(InHex(daemon.calls[0].argument), InHex(Hex(hexArgument)));
}

void Connect(int clientNumber, Script *script, const char *hostName) {
    while (clientNumber >= connectionSlots) {
        clntArray = static_cast<RegistryConnectionEntry **>(
            std::realloc(clntArray, sizeof *clntArray * static_cast<std::size_t>(connectionSlots + 1)));
        clntArray[connectionSlots++] = nullptr;
    }
    clntArray[clientNumber] = static_cast<RegistryConnectionEntry *>(std::calloc(1, sizeof(RegistryConnectionEntry)));
    *clntArray[clientNumber] = {_ktl_strdup(hostName), MakeScriptedClient(script)};
    ++numConnections;
    nextClientNum = clientNumber + 1;
}
