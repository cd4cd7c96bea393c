// SPDX-License-Identifier: MIT
// scripted_client: an RPC client handle without a network, for what lies above the client stubs.
//
// A script keeps the answers to come and the calls that were made. Each call on the handle encodes its argument, takes
// the next answer and decodes it as the real thing would; nothing waits, a time-out is an answer like any other.
#pragma once

#include <rpc/rpc.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Bytes written in hexadecimal, blanks as the reader likes them: "00000002 616e0000".
Bytes Hex(std::string_view digits);
std::string InHex(const Bytes &bytes); // in groups of four bytes

struct ScriptedAnswer {
    clnt_stat status = RPC_SUCCESS;
    Bytes result = {}; // decoded when the status is RPC_SUCCESS
};

struct RecordedCall {
    std::uint32_t procedure;
    Bytes argument;
    timeval timeout;
};

struct Script {
    std::deque<ScriptedAnswer> answers = {};
    std::vector<RecordedCall> calls = {};
    int clientsAlive = 0;
    rpc_err lastError = {};

    void Answer(std::string_view hexResult) { answers.push_back({RPC_SUCCESS, Hex(hexResult)}); }
    void Fail(clnt_stat status) { answers.push_back({status, {}}); }
};

// Makes a client handle that plays the script; the script must outlive it. A call for which the script has no answer
// fails with RPC_SYSTEMERROR, which keeps a connection. Destroyed with clnt_destroy.
CLIENT *MakeScriptedClient(Script *script);
