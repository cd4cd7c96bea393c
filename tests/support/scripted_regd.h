// SPDX-License-Identifier: MIT
// scripted_regd: a registry daemon for tests on a private host, whose answers are bytes and whose manners may be bad.
//
// It listens at one address and port and serves any number of connections from a thread of its own. Handshakes and
// pings are answered by itself; every other call is recorded and answered by the test's own function, on the daemon's
// thread. All daemons of a host that are to be found through its one port mapper listen at the same port.
#pragma once

#include "tests/support/scripted_client.h"

#include <functional>
#include <memory>
#include <mutex>
#include <thread>

constexpr std::uint16_t scriptedRegdPort = 7717;
constexpr std::size_t wholeReply = SIZE_MAX;

struct WireAnswer {
    Bytes result = {};
    std::size_t cutAfter = wholeReply; // bytes of the reply record to send before the connection is closed
    std::uint32_t xidOffset = 0;       // added to the transaction id: an answer to another question
    bool late = false;                 // held back until the next call has come, then sent before its answer
};

struct WireCall {
    std::uint32_t procedure;
    Bytes argument;
};

using WireHandler = std::function<WireAnswer(const WireCall &)>;

struct ScriptedRegd {
    //   version  what it answers when it is asked for its version
    explicit ScriptedRegd(const char *address, WireHandler handler, Bytes version = {});
    ~ScriptedRegd(); // closes its sockets
    ScriptedRegd(const ScriptedRegd &) = delete;
    ScriptedRegd &operator=(const ScriptedRegd &) = delete;

    std::vector<WireCall> Calls() const; // what came so far, handshakes and pings included
    int Connections() const;             // accepted so far

    struct State;
    std::unique_ptr<State> state;
    std::thread thread;
};

// Tells this host's port mapper where registry daemons listen, and forgets it. Throw std::runtime_error on failure.
void RegisterRegistryDaemon();
void UnregisterRegistryDaemon();
