// SPDX-License-Identifier: MIT
// crowd: many clients of one server, one request of each under way at any time.
#pragma once

#include "bench/measure/sampling.h"

#include <cstdint>
#include <string>
#include <vector>

// A closed loop of so many connections: each sends its next request as soon as the reply to the last one is there. One
// thread and no RPC code, so that what limits is the server.
struct Crowd {
    std::vector<int> connections;
    std::vector<std::string> requests; // one for each connection, with its header; or one for all
    std::size_t replyBytes = 0;        // of each reply
    int epoll = -1;
};

// A call with null credentials as it goes over TCP; the argument is XDR.
std::string RpcCall(std::uint32_t program, std::uint32_t version, std::uint32_t procedure, const std::string &argument);

Crowd MakeCrowd(std::uint16_t port, int clients, std::vector<std::string> requests, std::size_t replyBytes);
void ReleaseCrowd(Crowd &crowd);

void SendRequest(const Crowd &crowd, std::size_t client);
void TakeReply(const Crowd &crowd, std::size_t client);

// Time for each call, the server's CPU for each call.
Figures RunCrowd(const Crowd &crowd, pid_t server, int calls);
