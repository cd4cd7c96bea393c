// SPDX-License-Identifier: MIT
// registry_fixture: the registry client as a fresh process has it, its daemons played by scripts.
//
// DialHost, which the registry client connects with, is ours here: it hands out the clients of Dial's list.
#pragma once

#include "registry/connection.h"
#include "registry/operations.h"
#include "registry/parameters.h"
#include "registry/regd_clnt.h"
#include "registry/tv_getpid.h"
#include "registry/unused_state.h"
#include "tests/support/scripted_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

// The identity of RegistryTest on the wire: level 6, uid 1000, "ann", host id 0x0A0B0C0D.
inline const std::string identity = "00000006 000003e8 00000003 616e6e00 0a0b0c0d ";

// Which script answers at which host name, and which names were dialled.
struct DialPlan {
    std::map<std::string, Script *> hosts = {};
    std::vector<std::string> dialled = {}; // "host program version"
};
extern DialPlan dialPlan;

// A process that has not used the registry.
struct FreshRegistryTest : testing::Test {
    FreshRegistryTest();
    ~FreshRegistryTest() override;
    FreshRegistryTest(const FreshRegistryTest &) = delete;
    FreshRegistryTest &operator=(const FreshRegistryTest &) = delete;

    // A script that outlives the connections.
    Script &NewScript() { return scripts.emplace_back(); }
    std::deque<Script> scripts;
};

// A process that is known by the identity above and connected with the local daemon.
struct RegistryTest : FreshRegistryTest {
    RegistryTest();
    Script &daemon;

    // The one call that was made: its procedure and the hexadecimal digits of its argument.
    void ExpectOneCall(std::uint32_t procedure, const std::string &hexArgument) const;
    void ExpectNoCall() const { EXPECT_EQ(daemon.calls.size(), 0u); }
};

// Puts a connection into a slot.
void Connect(int clientNumber, Script *script, const char *hostName = nullptr);
